#include "inventory/postgres_connection.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "inventory/inventory.h"

namespace inventory::postgres {
namespace {

constexpr std::string_view kSchemes[] = {"postgresql://", "postgres://"};
constexpr std::string_view kService = "service=";

// What begins the binary form of COPY: the signature, no flags, no extension.
constexpr std::string_view kCopyHead("PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0", 19);
constexpr std::size_t kCopyPiece = std::size_t{256} * 1024;

// libpq's words as one line.
std::string oneLine(std::string_view words) {
  std::string line;
  for (const char c : words) {
    const bool isSpace = c == '\n' || c == '\r' || c == '\t' || c == ' ';
    if (!isSpace) {
      line += c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  while (line.ends_with(' ')) line.pop_back();
  return line;
}

std::string percentEncoded(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0 || std::strchr("-._~,[]:", c) != nullptr || byte >= 0x80) {
      encoded += c;
    } else {
      encoded += {'%', kDigits[byte >> 4], kDigits[byte & 0xF]};
    }
  }
  return encoded;
}

struct OptionsFree {
  void operator()(PQconninfoOption* options) const noexcept { PQconninfoFree(options); }
};

// Somebody's password may stand where it isn't understood as one, and be told by libpq as something else.
void requireClearCredentials(std::string_view rest) {
  const std::size_t end = rest.find_first_of("@/");
  if (end != rest.npos && rest[end] == '@') rest.remove_prefix(end + 1);
  const std::string_view place = rest.substr(0, rest.find('?'));
  if (place.find('@') == place.npos) return;
  throw Error(
      "the database's address has a '/' or an '@' in its user, password or database name; write '%2F' and "
      "'%40' instead");
}

template <typename Number>
Number bigEndian(const char* bytes) {
  Number value = 0;
  for (std::size_t at = 0; at < sizeof value; ++at) {
    value = static_cast<Number>((value << 8) | static_cast<unsigned char>(bytes[at]));
  }
  return value;
}

bool isLoss(const std::string& state) {
  // The classes of lost connections and of a server that goes down.
  return state.starts_with("08") || state == "57P01" || state == "57P02" || state == "57P03";
}

}  // namespace

bool isAddress(std::string_view name) {
  return name.starts_with(kSchemes[0]) || name.starts_with(kSchemes[1]) || name.starts_with(kService);
}

std::string shownAddress(const std::string& address) {
  if (address.starts_with(kService)) {
    if (address.size() == kService.size() ||
        address.find_first_of(" '\\\t\n\r=", kService.size()) != std::string::npos) {
      throw Error("'service=' has the name of one service behind it, without blanks or quotes");
    }
    return address;
  }
  requireClearCredentials(std::string_view(address).substr(address.find("://") + 3));
  char* words = nullptr;
  const std::unique_ptr<PQconninfoOption, OptionsFree> options(PQconninfoParse(address.c_str(), &words));
  if (options == nullptr) {
    // Behind the colon libpq quotes what it stumbles over.
    std::string why = words != nullptr ? oneLine(words) : "out of memory";
    PQfreemem(words);
    throw Error("the database's address can't be understood: " + why.substr(0, why.find_first_of(":\"")));
  }
  std::string user, host, port, name;
  const std::pair<std::string_view, std::string*> wanted[] = {
      {"user", &user}, {"host", &host}, {"port", &port}, {"dbname", &name}};
  for (const PQconninfoOption* option = options.get(); option->keyword != nullptr; ++option) {
    for (const auto& [keyword, text] : wanted) {
      if (option->keyword == keyword && option->val != nullptr) *text = percentEncoded(option->val);
    }
  }
  if (!user.empty()) user += "@";
  // A folder with the server's socket can't stand before the name.
  std::string folder;
  if (host.starts_with("%2F")) {
    folder = "?host=" + std::exchange(host, "");
    for (std::size_t at = 0; (at = folder.find("%2F")) != folder.npos;) folder.replace(at, 3, "/");
  }
  if (!port.empty()) port = ":" + port;
  return "postgresql://" + user + host + port + "/" + name + folder;
}

std::optional<std::string_view> ResultSet::text(int row, int column) const {
  if (PQgetisnull(result_.get(), row, column) != 0) return std::nullopt;
  return std::string_view(PQgetvalue(result_.get(), row, column),
                          static_cast<std::size_t>(PQgetlength(result_.get(), row, column)));
}

std::int64_t ResultSet::number(int row, int column) const {
  return std::strtoll(PQgetvalue(result_.get(), row, column), nullptr, 10);
}

std::int64_t ResultSet::changes() const {
  return std::strtoll(PQcmdTuples(result_.get()), nullptr, 10);
}

Connection::Connection(const std::string& address) {
  // What stands behind the address overrules it, and what stands before it is overruled.
  std::vector<const char*> keywords = {"tcp_user_timeout", "connect_timeout", "fallback_application_name"};
  std::vector<const char*> values = {"30000", "15", "iisinventory"};
  const bool isService = address.starts_with(kService);
  keywords.push_back(isService ? "service" : "dbname");
  values.push_back(isService ? address.c_str() + kService.size() : address.c_str());
  keywords.insert(keywords.end(), {"client_encoding", nullptr});
  values.insert(values.end(), {"UTF8", nullptr});
  connection_.reset(PQconnectdbParams(keywords.data(), values.data(), isService ? 0 : 1));
  if (connection_ == nullptr) throw std::bad_alloc();
  if (PQstatus(raw()) != CONNECTION_OK) {
    std::string why = oneLine(PQerrorMessage(raw()));
    if (PQconnectionNeedsPassword(raw()) != 0 || PQconnectionUsedPassword(raw()) != 0) {
      why += "; the password comes from PGPASSWORD, ~/.pgpass or a service file";
    } else if (why.find("database \"") != std::string::npos &&
               why.find("does not exist") != std::string::npos) {
      why += "; its administrator makes it: create database ... encoding 'UTF8' template template0";
    }
    throw Failure(why, "", true);
  }
  PQsetNoticeProcessor(
      raw(), [](void*, const char*) {}, nullptr);
}

ResultSet Connection::run(const std::string& sql, Parameters parameters) {
  std::vector<const char*> values;
  for (const auto& value : parameters) values.push_back(value ? value->c_str() : nullptr);
  ResultSet result(PQexecParams(raw(), sql.c_str(), static_cast<int>(values.size()), nullptr, values.data(),
                                nullptr, nullptr, 0));
  const ExecStatusType status = PQresultStatus(result.raw());
  if (status != PGRES_TUPLES_OK && status != PGRES_COMMAND_OK) fail(result.raw());
  return result;
}

void Connection::execute(const std::string& sql) {
  const ResultSet result(PQexec(raw(), sql.c_str()));
  const ExecStatusType status = PQresultStatus(result.raw());
  if (status != PGRES_TUPLES_OK && status != PGRES_COMMAND_OK) fail(result.raw());
}

std::string Connection::setting(const char* name) const {
  const char* const value = PQparameterStatus(raw(), name);
  return value != nullptr ? value : "";
}

std::string Connection::databaseName() const {
  const char* const name = PQdb(raw());
  return name != nullptr ? name : "";
}

void Connection::fail() const {
  fail(nullptr);
}

void Connection::fail(const PGresult* result) const {
  const auto field = [&](int code) {
    const char* const text = result != nullptr ? PQresultErrorField(result, code) : nullptr;
    return text != nullptr ? std::string(text) : std::string();
  };
  const std::string state = field(PG_DIAG_SQLSTATE);
  std::string why = field(PG_DIAG_MESSAGE_PRIMARY);
  if (const std::string detail = field(PG_DIAG_MESSAGE_DETAIL); !detail.empty()) why += ": " + detail;
  if (why.empty()) why = PQerrorMessage(raw());
  if (why.empty()) why = "the connection is lost";
  throw Failure(oneLine(why), state, PQstatus(raw()) != CONNECTION_OK || isLoss(state));
}

Transaction::Transaction(Connection& connection, const std::string& begin) : connection_(connection) {
  connection_.execute(begin);
}

Transaction::~Transaction() {
  if (!open_) return;
  try {
    connection_.execute("rollback");
  } catch (const std::exception&) {
    // The connection is gone, and the transaction with it.
  }
}

void Transaction::commit() {
  const ResultSet result = connection_.run("commit");
  open_ = false;
  if (std::string_view(PQcmdStatus(result.raw())) != "COMMIT") {
    throw Failure("the transaction was rolled back by the server", "", false);
  }
}

CopyIn::CopyIn(Connection& connection, const std::string& sql) : connection_(connection), buffer_(kCopyHead) {
  const ResultSet result(PQexec(connection_.raw(), (sql + " (format binary)").c_str()));
  if (PQresultStatus(result.raw()) != PGRES_COPY_IN) connection_.fail(result.raw());
}

CopyIn::~CopyIn() {
  if (!open_) return;
  PQputCopyEnd(connection_.raw(), "given up");
  while (PGresult* const result = PQgetResult(connection_.raw())) {
    PQclear(result);
    if (PQstatus(connection_.raw()) != CONNECTION_OK) break;
  }
}

template <typename Number>
void CopyIn::append(Number value) {
  std::array<char, sizeof value> bytes;
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    bytes[at] = static_cast<char>((value >> (8 * (bytes.size() - 1 - at))) & 0xFF);
  }
  buffer_.append(bytes.data(), bytes.size());
}

void CopyIn::row(std::size_t values) {
  if (buffer_.size() >= kCopyPiece) flush();
  append(static_cast<std::uint16_t>(values));
}

void CopyIn::text(const std::optional<std::string_view>& value) {
  append(static_cast<std::uint32_t>(value ? static_cast<std::int64_t>(value->size()) : -1));
  if (value) buffer_.append(*value);
}

void CopyIn::integer(std::int32_t value) {
  append(std::uint32_t{sizeof value});
  append(static_cast<std::uint32_t>(value));
}

void CopyIn::integer(std::int64_t value) {
  append(std::uint32_t{sizeof value});
  append(static_cast<std::uint64_t>(value));
}

void CopyIn::real(double value) {
  append(std::uint32_t{sizeof value});
  append(std::bit_cast<std::uint64_t>(value));
}

void CopyIn::flush() {
  if (PQputCopyData(connection_.raw(), buffer_.data(), static_cast<int>(buffer_.size())) != 1) {
    open_ = false;
    connection_.fail();
  }
  buffer_.clear();
}

void CopyIn::finish() {
  append(std::uint16_t{0xFFFF});
  flush();
  open_ = false;
  if (PQputCopyEnd(connection_.raw(), nullptr) != 1) connection_.fail();
  const ResultSet result(PQgetResult(connection_.raw()));
  const ResultSet end(PQgetResult(connection_.raw()));
  if (PQresultStatus(result.raw()) != PGRES_COMMAND_OK) connection_.fail(result.raw());
}

CopyOut::CopyOut(Connection& connection, const std::string& select) : connection_(connection) {
  const ResultSet result(
      PQexec(connection_.raw(), ("copy (" + select + ") to stdout (format binary)").c_str()));
  if (PQresultStatus(result.raw()) != PGRES_COPY_OUT) connection_.fail(result.raw());
}

bool CopyOut::next() {
  if (atEnd_) return false;
  char* raw = nullptr;
  const int size = PQgetCopyData(connection_.raw(), &raw, 0);
  row_.reset(raw);
  if (size < 0) {
    const ResultSet result(PQgetResult(connection_.raw()));
    if (size == -2 || PQresultStatus(result.raw()) != PGRES_COMMAND_OK) connection_.fail(result.raw());
    atEnd_ = true;
    while (ResultSet(PQgetResult(connection_.raw())).raw() != nullptr) {
    }
    return false;
  }
  std::string_view rest(raw, static_cast<std::size_t>(size));
  const auto take = [&](std::size_t length) {
    if (rest.size() < length) throw Failure("the server's rows can't be understood", "", false);
    const std::string_view taken = rest.substr(0, length);
    rest.remove_prefix(length);
    return taken;
  };
  if (atStart_) {
    atStart_ = false;
    take(kCopyHead.size());
    if (rest.empty()) return next();
  }
  const auto count = static_cast<std::int16_t>(bigEndian<std::uint16_t>(take(2).data()));
  if (count < 0) return next();
  cells_.assign(static_cast<std::size_t>(count), std::nullopt);
  for (auto& cell : cells_) {
    const auto length = static_cast<std::int32_t>(bigEndian<std::uint32_t>(take(4).data()));
    if (length >= 0) cell = take(static_cast<std::size_t>(length));
  }
  return true;
}

}  // namespace inventory::postgres
