#include "inventory/postgres/connection.h"

#include <fmt/core.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <random>
#include <regex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace inventory::postgres {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kCancelWait{1000};
constexpr int kOldestVersion = 130000;

// Hints by prefix of the SQLSTATE.
constexpr std::pair<std::string_view, const char*> kHints[] = {
    {"28", " (set a password in PGPASSWORD, ~/.pgpass or a service file)"},
    {"3D000", " (its administrator runs: create database ... encoding 'UTF8' template template0)"},
    {"40P01", " (use --wait to wait longer)"},
    {"55P03", " (use --wait to wait longer)"},
    {"XX001", " (the database is damaged)"},
    {"XX002", " (the database is damaged)"}};

std::string replaced(const std::string& text, const char* pattern, const char* with) {
  return std::regex_replace(text, std::regex(pattern), with);
}

std::string grantsFor(const Target& target) {
  const std::string schema = quotedName(target.access.schema);
  return fmt::format(
      " (the schema's owner runs: grant usage on schema {0} to ...; grant select on all tables in schema {0} "
      "to ...)",
      schema);
}

// libpq's message as one line.
std::string oneLine(const std::string& words) {
  return replaced(replaced(words, "[ \t\r\n]+", " "), "^ | $", "");
}

// Throws Error for an address in which libpq could misparse a part of the password and report it.
void requireClearCredentials(std::string_view rest) {
  const std::size_t end = rest.find_first_of("@/");
  if (end != std::string_view::npos && rest[end] == '@') rest.remove_prefix(end + 1);
  if (rest.substr(0, rest.find('?')).find('@') == std::string_view::npos) return;
  throw Error(
      "the database's address has a '/' or an '@' in its user, password or database name; write '%2F' and "
      "'%40' instead");
}

using ParsedOptions = std::unique_ptr<PQconninfoOption, Freer<PQconninfoFree>>;

bool isUrl(std::string_view name) {
  return name.starts_with("postgresql://") || name.starts_with("postgres://");
}

// Whether a text begins like libpq's "KEYWORD=VALUE ...", or has a password anywhere.
bool isKeywordList(const std::string& text) {
  static const std::regex kFirst(R"(^\s*(\w+)\s*=)"), kPassword(R"(\b(password|pwd)\s*=)", std::regex::icase);
  std::smatch match;
  if (!std::regex_search(text, match, kFirst)) return false;
  const ParsedOptions known(PQconninfoParse("", nullptr));
  for (const PQconninfoOption* option = known.get(); option != nullptr && option->keyword != nullptr;
       ++option) {
    if (match[1] == option->keyword) return true;
  }
  return std::regex_search(text, kPassword);
}

// Whether a failed connect without a server's answer may succeed later.
bool isTransient(const std::string& words) {
  static const std::regex kReasons(
      "refused|failed: No such file|timed out|unreachable|No route|reset by peer|closed the connection|"
      "Broken pipe|temporarily unavailable");
  return std::regex_search(words, kReasons);
}

int clamped(milliseconds time, int least) {
  return static_cast<int>(std::clamp<milliseconds::rep>(time.count(), least, 2147483647));
}

}  // namespace

bool isAddress(const std::string& name) {
  if (isUrl(name) || name.starts_with("service=")) return true;
  std::error_code error;
  return isKeywordList(name) && !std::filesystem::exists(name, error);
}

std::string shownAddress(const std::string& address) {
  if (isUrl(address)) requireClearCredentials(std::string_view(address).substr(address.find("://") + 3));
  char* words = nullptr;
  const ParsedOptions options(PQconninfoParse(address.c_str(), &words));
  if (options == nullptr) {
    // After a colon or in double quotes libpq shows the invalid part.
    std::string why = words != nullptr ? replaced(oneLine(words), R"("=" after)", "'='") : "out of memory";
    PQfreemem(words);
    why.resize(std::min(why.size(), why.find_first_of(":\"")));
    throw Error(fmt::format(
        "cannot parse the database's address: {} (write postgresql://USER@HOST:PORT/NAME)", oneLine(why)));
  }
  std::map<std::string_view, std::string> parts;
  for (const PQconninfoOption* option = options.get(); option->keyword != nullptr; ++option) {
    if (option->val != nullptr) parts[option->keyword] = option->val;
  }
  if (!parts["service"].empty() && parts["host"].empty() && parts["dbname"].empty())
    return "service=" + parts["service"];
  // A socket directory is not valid as the host of an address.
  std::string folder;
  if (std::string& host = parts["host"]; host.starts_with('/')) folder = "?host=" + std::exchange(host, "");
  return "postgresql://" + parts["user"] + (parts["user"].empty() ? "" : "@") + parts["host"] +
         (parts["port"].empty() ? "" : ":") + parts["port"] + "/" + parts["dbname"] + folder;
}

StopSignal::StopSignal() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "cannot create an eventfd");
}

StopSignal::~StopSignal() {
  ::close(descriptor_);
}

void StopSignal::raise() {
  isRaised_ = true;
  ::eventfd_write(descriptor_, 1);
}

void StopSignal::check() const {
  if (isRaised_) throw Interrupted("interrupted");
}

bool StopSignal::pauseUntil(steady_clock::time_point end) const {
  static thread_local std::minstd_rand random{std::random_device{}()};
  if (steady_clock::now() >= end) return false;
  pollfd signal{descriptor_, POLLIN, 0};
  ::poll(&signal, 1, std::uniform_int_distribution<int>(10, 50)(random));
  return !isRaised_;
}

Target::Target(std::string database, Access options)
    : address(std::move(database)), shown(shownAddress(address)), access(std::move(options)) {
  if (access.schema.empty() || access.schema.size() > 63)
    throw Error(fmt::format("cannot use the schema '{}': a schema's name has 1 to 63 bytes", access.schema));
}

Cell ResultSet::text(int row, int column) const {
  if (PQgetisnull(raw(), row, column) != 0) return std::nullopt;
  return std::string_view(PQgetvalue(raw(), row, column),
                          static_cast<std::size_t>(PQgetlength(raw(), row, column)));
}

Connection::Connection(std::shared_ptr<const Target> target) : target_(std::move(target)) {
  const std::string& address = target_->address;
  // Unacknowledged packets end the connection well before the server timeout.
  const std::string userTimeout =
      std::to_string(std::min<milliseconds::rep>(30000, target_->access.serverTimeout.count() / 2 + 1));
  // The address overrides options before it and is overridden by options after it.
  const std::pair<const char*, const char*> options[] = {{"tcp_user_timeout", userTimeout.c_str()},
                                                         {"keepalives_idle", "15"},
                                                         {"keepalives_interval", "5"},
                                                         {"keepalives_count", "3"},
                                                         {"fallback_application_name", "iisinventory"},
                                                         {"dbname", address.c_str()},
                                                         {"keepalives", "1"},
                                                         {"client_encoding", "UTF8"},
                                                         {nullptr, nullptr}};
  std::vector<const char*> keywords, values;
  for (const auto& [keyword, value] : options) {
    keywords.push_back(keyword);
    values.push_back(value);
  }
  connection_.reset(PQconnectStartParams(keywords.data(), values.data(), 1));
  if (connection_ == nullptr) throw std::bad_alloc();
  PQsetNoticeProcessor(
      raw(), [](void*, const char*) {}, nullptr);
  // Includes the SQLSTATE in the text, the only place where a refused connection reports it.
  PQsetErrorVerbosity(raw(), PQERRORS_VERBOSE);
  PostgresPollingStatusType next = PGRES_POLLING_WRITING;
  while (PQstatus(raw()) != CONNECTION_BAD && next != PGRES_POLLING_OK && next != PGRES_POLLING_FAILED) {
    await(next == PGRES_POLLING_READING ? POLLIN : POLLOUT, target_->access.serverTimeout);
    next = PQconnectPoll(raw());
  }
  if (PQstatus(raw()) != CONNECTION_OK) fail();
  isOpen_ = true;
  PQsetErrorVerbosity(raw(), PQERRORS_DEFAULT);
  PQsetnonblocking(raw(), 1);
}

Connection::~Connection() {
  // Otherwise the end of a connection that still has data to send may wait for the server.
  if (isLost_ && PQsocket(raw()) >= 0) ::shutdown(PQsocket(raw()), SHUT_RDWR);
}

// Waits until the socket is ready for one of `events`. Returns the ready ones.
short Connection::await(short events, milliseconds limit) {
  const auto end = steady_clock::now() + limit;
  while (true) {
    const bool isStopped = target_->stop.isRaised();
    if (isStopped && !cancelEnd_) cancel();
    const auto rest =
        std::chrono::ceil<milliseconds>(std::min(end, cancelEnd_.value_or(end)) - steady_clock::now());
    if (rest.count() <= 0) break;
    pollfd ends[] = {{PQsocket(raw()), events, 0}, {isStopped ? -1 : target_->stop.descriptor(), POLLIN, 0}};
    if (::poll(ends, 2, clamped(rest, 0)) > 0 && ends[0].revents != 0) return ends[0].revents;
  }
  isLost_ = true;
  target_->stop.check();
  throw Unreachable(fmt::format(
      "cannot reach '{}': no answer from the server for {} s (use --server-timeout to wait longer)",
      target_->shown, static_cast<double>(limit.count()) / 1000));
}

// Asks the server to end the running statement, and limits the wait for its answer.
void Connection::cancel() {
  cancelEnd_ = steady_clock::now();
  std::unique_ptr<PGcancel, Freer<PQfreeCancel>> handle(PQgetCancel(raw()));
  // Without a session there is nothing to cancel.
  if (handle == nullptr || PQstatus(raw()) != CONNECTION_OK) return;
  *cancelEnd_ += kCancelWait;
  try {
    // PQcancel blocks until the system's timeout, so it runs in a detached thread.
    std::thread([handle = std::move(handle)] {
      char words[256];
      PQcancel(handle.get(), words, sizeof words);
    }).detach();
  } catch (const std::system_error&) {
    // Without a thread the connection is closed shortly afterwards.
  }
}

void Connection::flush() {
  while (const int left = PQflush(raw())) {
    if (left < 0) fail();
    const short ready = await(POLLIN | POLLOUT, target_->access.serverTimeout + target_->access.wait);
    if ((ready & ~POLLOUT) != 0 && PQconsumeInput(raw()) == 0) fail();
  }
}

void Connection::send(const std::string& sql, const Parameters& parameters) {
  target_->stop.check();
  std::vector<std::string> numbers(parameters.size());
  std::vector<const char*> values(parameters.size(), nullptr);
  for (std::size_t at = 0; at < parameters.size(); ++at) {
    if (const auto* number = std::get_if<std::int64_t>(&parameters[at]))
      values[at] = (numbers[at] = std::to_string(*number)).c_str();
    if (const auto* text = std::get_if<std::string>(&parameters[at])) values[at] = text->c_str();
  }
  if (isLost() || PQsendQueryParams(raw(), sql.c_str(), static_cast<int>(values.size()), nullptr,
                                    values.data(), nullptr, nullptr, 0) == 0) {
    fail();
  }
}

ResultSet Connection::receive() {
  while (PQisBusy(raw()) != 0) {
    await(POLLIN, target_->access.serverTimeout + target_->access.wait);
    if (PQconsumeInput(raw()) == 0) fail();
  }
  return ResultSet(PQgetResult(raw()));
}

// The last result of the running statements.
ResultSet Connection::finish() {
  flush();
  ResultSet last;
  for (ResultSet next = receive(); next.raw() != nullptr; next = receive()) {
    const bool isCopy = next.status() == PGRES_COPY_IN;
    if (last.raw() == nullptr || last.status() != PGRES_FATAL_ERROR) last = std::move(next);
    if (isCopy) break;
  }
  if (last.status() != PGRES_TUPLES_OK && last.status() != PGRES_COMMAND_OK && last.status() != PGRES_COPY_IN)
    fail(last.raw());
  return last;
}

ResultSet Connection::run(const std::string& sql, const Parameters& parameters) {
  if (!parameters.empty()) {
    send(sql, parameters);
  } else {
    target_->stop.check();
    if (isLost() || PQsendQuery(raw(), sql.c_str()) == 0) fail();
  }
  return finish();
}

void Connection::start(const std::string& sql, const Parameters& parameters) {
  send(sql, parameters);
  if (PQsetSingleRowMode(raw()) == 0) fail();
  flush();
}

void Connection::sendCopy(std::string_view data) {
  target_->stop.check();
  int sent = 0;
  while ((sent = PQputCopyData(raw(), data.data(), static_cast<int>(data.size()))) == 0) flush();
  if (sent < 0) fail();
  flush();
}

void Connection::endCopy(const char* error) {
  int sent = 0;
  while ((sent = PQputCopyEnd(raw(), error)) == 0) flush();
  if (sent < 0) fail();
  finish();
}

void Connection::drain() noexcept {
  try {
    while (!isLost() && PQtransactionStatus(raw()) == PQTRANS_ACTIVE) {
      if (receive().status() == PGRES_COPY_IN) endCopy("abandoned");
    }
  } catch (const std::exception&) {
    // A result that reports a failure; or the connection is lost, which is noticed at its next use.
  }
}

void Connection::fail(const PGresult* result) {
  const auto field = [&](int code) {
    const char* const text = result != nullptr ? PQresultErrorField(result, code) : nullptr;
    return text != nullptr ? std::string(text) : std::string();
  };
  state_ = field(PG_DIAG_SQLSTATE);
  std::string why = field(PG_DIAG_MESSAGE_PRIMARY);
  if (const std::string detail = field(PG_DIAG_MESSAGE_DETAIL); !detail.empty()) why += ": " + detail;
  if (why.empty()) {
    why = PQerrorMessage(raw());
    std::smatch match;
    if (std::regex_search(why, match, std::regex(":  ([0-9A-Z]{5}): "))) state_ = match[1];
    why = replaced(why, "  [0-9A-Z]{5}:|LOCATION: [^\n]*", "");
  }
  why = fmt::format("'{}': {}", target_->shown, why.empty() ? "the connection is lost" : oneLine(why));
  for (const auto& [state, hint] : kHints) {
    if (state_.starts_with(state)) why += hint;
  }
  const std::string severity = field(PG_DIAG_SEVERITY_NONLOCALIZED);
  isLost_ = isLost_ || isLost() || severity == "FATAL" || severity == "PANIC";
  target_->stop.check();
  if (!isOpen_) {
    why = "cannot connect to " + why;
    if (state_ == "53300") throw TooManyConnections(why);
    if (state_.starts_with("57P0") || state_.starts_with("08") || (state_.empty() && isTransient(why)))
      throw Unreachable(why);
    if (state_ == "42501") throw Forbidden(why);
    throw Error(why);
  }
  if (isLost_) throw Unreachable("cannot reach " + why);
  if (state_ == "55P03" || state_ == "40P01") throw Locked("cannot lock a table of " + why);
  if (state_ == "42501") throw Forbidden("cannot use " + why + grantsFor(*target_));
  throw Error("cannot use " + why);
}

std::unique_ptr<Connection> connect(const std::shared_ptr<const Target>& target) {
  auto connection = std::make_unique<Connection>(target);
  const auto setting = [&](const char* name) {
    const char* const value = PQparameterStatus(connection->raw(), name);
    return std::string(value != nullptr ? value : "");
  };
  if (PQserverVersion(connection->raw()) < kOldestVersion) {
    target->refuse(fmt::format("the server is PostgreSQL {}, an inventory needs version 13 or later",
                               setting("server_version")));
  }
  if (const std::string encoding = setting("server_encoding"); encoding != "UTF8")
    target->refuse(
        fmt::format("its encoding is {} (use a database that was created with encoding 'UTF8')", encoding));
  // Whatever the role's own settings are: names mean the same everywhere, only this program limits the time,
  // and what is committed is safe on the disk. Some of the settings are missing from older servers.
  const std::string& schema = target->access.schema;
  const ResultSet hidden = connection->run(fmt::format(
      R"(set search_path = {}, pg_temp; set timezone = 'UTC'; set datestyle = 'ISO'; set row_security = off;
set jit = off; set standard_conforming_strings = on; set extra_float_digits = 1; set lock_timeout = {};
select set_config(name, '0', false) from pg_settings where name in
    ('statement_timeout', 'transaction_timeout', 'idle_in_transaction_session_timeout', 'idle_session_timeout');
select set_config('synchronous_commit', 'on', false) where current_setting('synchronous_commit') = 'off';
select 1 from pg_namespace where nspname = {} and not has_schema_privilege(oid, 'USAGE'))",
      quotedName(schema), clamped(target->access.wait, 1), quotedText(schema)));
  // Otherwise the server reports the schema as missing.
  if (hidden.rows() > 0) {
    throw Forbidden(fmt::format("cannot use '{}': the role may not use the schema '{}'{}", target->shown,
                                schema, grantsFor(*target)));
  }
  return connection;
}

}  // namespace inventory::postgres
