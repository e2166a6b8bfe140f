#include "host/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "automation/failure.h"
#include "host/terminal_text.h"

namespace host {
namespace {

using automation::Arguments;
using automation::equalsIgnoringCase;
using automation::MemberlessObject;
using automation::Text;
using automation::TextView;
using automation::Variant;

constexpr std::chrono::milliseconds kBetweenDrawings{50};
// How long one server is shown while others wait for their turn.
constexpr std::chrono::seconds kBetweenServers{2};
constexpr std::chrono::milliseconds kLongestStop{200};
constexpr std::string_view kWipe = "\r\x1b[K";
constexpr std::size_t kBarWidth = 24;
constexpr std::size_t kLeastForStatus = 24;

void writeToTerminal(std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

bool isCapableTerminal() {
  const char* kind = std::getenv("TERM");
  return ::isatty(STDERR_FILENO) != 0 && kind != nullptr && std::string_view(kind) != "dumb";
}

std::string bar(const ProgressLine::Lane& lane) {
  const int done = std::clamp(lane.stepsDone, 0, lane.steps);
  const auto filled = lane.steps > 0
                          ? kBarWidth * static_cast<std::size_t>(done) / static_cast<std::size_t>(lane.steps)
                          : std::size_t{0};
  return "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '-') + "]";
}

// Status at the left, bar and count at the right. A narrow terminal has no room for the bar, and a very
// narrow one only for the status.
std::string layOut(const ProgressLine::Lane& lane, std::size_t width) {
  const std::string status = harmless(lane.name.empty() ? lane.status : lane.name + ": " + lane.status);
  const std::string count = harmless(lane.count);
  std::string right = bar(lane) + " " + count;
  if (displayWidth(right) + kLeastForStatus > width) right = count;
  if (displayWidth(right) + kLeastForStatus > width) right.clear();
  const std::size_t room = width - displayWidth(right);
  const std::string left = cutToWidth(status, right.empty() ? room : room - 1);
  return left + std::string(room - displayWidth(left), ' ') + right;
}

}  // namespace

// One of the three objects. Each has one member that is written; the bar has a method besides.
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

ProgressLine::ProgressLine(bool wanted) : shown_(wanted && isCapableTerminal()) {}

ProgressLine::~ProgressLine() {
  stop();
}

std::shared_ptr<ProgressLine::Lane> ProgressLine::begin(std::string name) {
  auto lane = std::make_shared<Lane>();
  lane->name = std::move(name);
  const std::lock_guard lock(mutex_);
  lanes_.push_back(lane);
  return lane;
}

ProgressLine::Updaters ProgressLine::updaters(const std::shared_ptr<Lane>& lane) {
  if (!shown_) return {};
  using Role = Updater::Role;
  return {std::make_shared<Updater>(*this, lane, Role::kStatus),
          std::make_shared<Updater>(*this, lane, Role::kBar),
          std::make_shared<Updater>(*this, lane, Role::kCount)};
}

void ProgressLine::end(const std::shared_ptr<Lane>& lane) {
  const std::lock_guard lock(mutex_);
  std::erase(lanes_, lane);
  if (current_ == lane) current_ = nullptr;
  if (lanes_.empty()) wipe();
}

void ProgressLine::stop() {
  // Whoever prints aside may wait for a reader that never comes. The system's clock: the thread sanitizer of
  // GCC 12 doesn't see a lock that waits by the steady one.
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
  // The last column stays free: a terminal may break the line behind it.
  const std::size_t columns = terminalColumns(STDERR_FILENO);
  const std::string line = std::string(kWipe) + layOut(*current_, columns > 1 ? columns - 1 : 1);
  lineStands_ = true;
  writeToTerminal(line);
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
  if (!lineStands_) return;
  writeToTerminal(kWipe);
  lineStands_ = false;
}

}  // namespace host
