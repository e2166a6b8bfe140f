#include "host/console/progress.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <utility>

#include <fmt/core.h>

#include "automation/failure.h"
#include "host/console/output.h"
#include "host/console/terminal_text.h"
#include "os/terminal.h"

namespace host {
namespace {

using automation::Arguments;
using automation::equalsIgnoringCase;
using automation::MemberlessObject;
using automation::Text;
using automation::TextView;
using automation::Variant;

constexpr std::chrono::milliseconds kBetweenDrawings{50};
// How long one server is shown before the next.
constexpr std::chrono::seconds kBetweenServers{2};
constexpr std::chrono::milliseconds kLongestStop{200};
constexpr std::string_view kWipe = "\r\x1b[K";
constexpr std::size_t kBarWidth = 16;
constexpr std::size_t kLeastForStatus = 32;
// Estimates are shown after this time, and for at least this rest.
constexpr std::chrono::seconds kNoGuessBefore{5};
constexpr std::chrono::seconds kShortestShown{10};

bool isCapableTerminal() {
  const char* kind = std::getenv("TERM");
  return os::isTerminal(os::kStandardError) && kind != nullptr && std::string_view(kind) != "dumb";
}

std::string bar(const ProgressLine::Lane& lane) {
  const int done = std::clamp(lane.stepsDone, 0, lane.steps);
  const auto filled = lane.steps > 0
                          ? kBarWidth * static_cast<std::size_t>(done) / static_cast<std::size_t>(lane.steps)
                          : std::size_t{0};
  return "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '-') + "]";
}

// Server, tab and status at the left, bar, count and time at the right. A narrow terminal has no bar, and a
// very narrow one only the left part.
std::string layOut(const ProgressLine::Lane& lane, const std::string& left, std::size_t width) {
  std::string status;
  for (const std::string& part : {lane.name, lane.section, lane.status}) {
    if (!part.empty()) status += (status.empty() ? "" : ": ") + escapeForTerminal(part);
  }
  const std::string count = escapeForTerminal(lane.count);
  const std::string behind = count + (count.empty() || left.empty() ? "" : ", ") + left;
  const std::string choices[] = {bar(lane) + " " + behind, behind, left};
  const auto fits = [&](const std::string& text) { return displayWidth(text) + kLeastForStatus <= width; };
  const auto* const choice = std::find_if(std::begin(choices), std::end(choices), fits);
  const std::string right = choice == std::end(choices) ? "" : *choice;
  const std::size_t room = width - displayWidth(right);
  const std::string shown = cutToWidth(status, right.empty() ? room : room - 1);
  return shown + std::string(room - displayWidth(shown), ' ') + right;
}

}  // namespace

std::string timeLeft(std::chrono::steady_clock::duration took, std::size_t done, std::size_t all) {
  if (took < kNoGuessBefore || done == 0 || done >= all) return "";
  const auto left =
      std::chrono::duration<double>(took) * (static_cast<double>(all - done) / static_cast<double>(done));
  if (left < kShortestShown) return "";
  // No more digits than are reliable.
  if (left <= std::chrono::seconds(90))
    return fmt::format("about {:.0f}0 s left", std::ceil(left.count() / 10));
  if (left <= std::chrono::minutes(90))
    return fmt::format("about {:.0f} min left", std::ceil(left.count() / 60));
  return fmt::format("about {:.0f} h left", std::ceil(left.count() / 3600));
}

// One of the three progress objects. Each has a property that is written; the bar also has a method.
class ProgressLine::Updater : public MemberlessObject {
 public:
  enum class Role { kStatus, kBar, kCount };

  Updater(ProgressLine& line, std::shared_ptr<Lane> lane, Role role)
      : MemberlessObject(u"iisinventory"), line_(line), lane_(std::move(lane)), role_(role) {}

  void write(TextView member, Arguments arguments, const Variant& value) override {
    const TextView own = role_ == Role::kBar ? u"Max" : u"message";
    if (!arguments.empty() || !equalsIgnoringCase(member, own)) {
      return MemberlessObject::write(member, arguments, value);
    }
    if (role_ == Role::kBar) {
      const int steps = automation::toInt16(value);
      line_.change(lane_, [&](Lane& lane) {
        lane.steps = steps;
        lane.stepsDone = 0;
      });
      return;
    }
    std::string text = automation::toUtf8(automation::toText(value));
    line_.change(lane_,
                 [&](Lane& lane) { (role_ == Role::kStatus ? lane.status : lane.count) = std::move(text); });
  }

  Variant call(TextView member, Arguments arguments) override {
    if (role_ != Role::kBar || !arguments.empty() || !equalsIgnoringCase(member, u"increment")) {
      return MemberlessObject::call(member, arguments);
    }
    line_.change(lane_, [](Lane& lane) { ++lane.stepsDone; });
    return {};
  }

 private:
  ProgressLine& line_;
  std::shared_ptr<Lane> lane_;
  Role role_;
};

ProgressLine::ProgressLine(bool wanted, std::size_t servers)
    : shown_(wanted && isCapableTerminal()), servers_(servers) {}

ProgressLine::~ProgressLine() {
  stop();
}

std::shared_ptr<ProgressLine::Lane> ProgressLine::begin(const std::string& name, std::size_t number) {
  auto lane = std::make_shared<Lane>();
  if (servers_ > 1) lane->name = fmt::format("{}/{} {}", number, servers_, name);
  const std::lock_guard lock(mutex_);
  lanes_.push_back(lane);
  return lane;
}

ProgressLine::Updaters ProgressLine::updaters(const std::shared_ptr<Lane>& lane) {
  if (!shown_) return {};
  using Role = Updater::Role;
  return {std::make_shared<Updater>(*this, lane, Role::kStatus),
          std::make_shared<Updater>(*this, lane, Role::kBar),
          std::make_shared<Updater>(*this, lane, Role::kCount), [this, lane](std::string_view section) {
            change(lane, [&](Lane& begun) { begun = {begun.name, std::string(section), {}, {}}; });
          }};
}

void ProgressLine::end(const std::shared_ptr<Lane>& lane) {
  const std::lock_guard lock(mutex_);
  std::erase(lanes_, lane);
  if (current_ == lane) current_ = nullptr;
  ++done_;
  if (lanes_.empty()) wipe();
}

void ProgressLine::stop() {
  // A thread in aside() may wait for a reader for ever. The thread sanitizer of GCC 12 supports waits by the
  // system clock only.
  const std::unique_lock lock(mutex_, std::chrono::system_clock::now() + kLongestStop);
  stopped_ = true;
  if (lock.owns_lock()) wipe();
}

void ProgressLine::aside(const std::function<void()>& print) {
  const std::lock_guard lock(mutex_);
  wipe();
  print();
}

void ProgressLine::change(const std::shared_ptr<Lane>& lane, const std::function<void(Lane&)>& edit) {
  const std::lock_guard lock(mutex_);
  edit(*lane);
  if (stopped_) return;
  const Clock::time_point now = Clock::now();
  if (now - drawn_ < kBetweenDrawings) return;
  chooseLane(now);
  if (current_ == nullptr) return;
  drawn_ = now;
  // A terminal may wrap after the last column, so it stays free.
  const std::size_t columns = os::terminalColumns(os::kStandardError);
  const std::string line = std::string(kWipe) + layOut(*current_, timeLeft(now - start_, done_, servers_),
                                                       columns > 1 ? columns - 1 : 1);
  isLineShown_ = true;
  printToError(line);
}

void ProgressLine::chooseLane(Clock::time_point now) {
  if (lanes_.empty()) return;
  const auto place = std::find(lanes_.begin(), lanes_.end(), current_);
  if (place != lanes_.end() && now - currentSince_ < kBetweenServers) return;
  const auto next = place == lanes_.end() || place + 1 == lanes_.end() ? lanes_.begin() : place + 1;
  current_ = *next;
  currentSince_ = now;
}

void ProgressLine::wipe() noexcept {
  if (!isLineShown_) return;
  printToError(kWipe);
  isLineShown_ = false;
}

}  // namespace host
