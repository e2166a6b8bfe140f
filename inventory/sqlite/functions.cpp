#include "inventory/sqlite/functions.h"

#include <new>
#include <string>
#include <string_view>

#include "inventory/names.h"

namespace inventory {
namespace {

constexpr int kPlain = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;

std::string_view textOf(sqlite3_value* value) {
  const auto* const text = reinterpret_cast<const char*>(sqlite3_value_text(value));
  return text == nullptr ? std::string_view()
                         : std::string_view(text, static_cast<std::size_t>(sqlite3_value_bytes(value)));
}

bool isNull(sqlite3_value* value) {
  return sqlite3_value_type(value) == SQLITE_NULL;
}

void returnText(sqlite3_context* context, std::string_view text) {
  sqlite3_result_text64(context, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

// Runs a function's body; SQLite is C and must not see exceptions.
template <typename Body>
void guarded(sqlite3_context* context, const Body& body) noexcept {
  try {
    body();
  } catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(context);
  } catch (const std::exception& error) {
    sqlite3_result_error(context, error.what(), -1);
  }
}

void fold(sqlite3_context* context, int, sqlite3_value** arguments) {
  if (isNull(arguments[0])) return;
  guarded(context, [&] { returnText(context, folded(textOf(arguments[0]))); });
}

// The position in characters from 1; 0 if not found.
void strpos(sqlite3_context* context, int, sqlite3_value** arguments) {
  if (isNull(arguments[0]) || isNull(arguments[1])) return;
  const std::string_view text = textOf(arguments[0]);
  const std::size_t found = text.find(textOf(arguments[1]));
  sqlite3_int64 place = found == std::string_view::npos ? 0 : 1;
  for (std::size_t at = 0; found != std::string_view::npos && at < found; ++at)
    place += (static_cast<unsigned char>(text[at]) & 0xC0) != 0x80 ? 1 : 0;
  sqlite3_result_int64(context, place);
}

void startsWith(sqlite3_context* context, int, sqlite3_value** arguments) {
  if (isNull(arguments[0]) || isNull(arguments[1])) return;
  sqlite3_result_int(context, textOf(arguments[0]).starts_with(textOf(arguments[1])) ? 1 : 0);
}

// bool_or and bool_and: the state is 0 for no value yet, 1 for false, 2 for true.
template <bool kStop>
void addBoolean(sqlite3_context* context, int, sqlite3_value** arguments) {
  auto* const state = static_cast<int*>(sqlite3_aggregate_context(context, sizeof(int)));
  if (state == nullptr || isNull(arguments[0])) return;
  const bool value = sqlite3_value_int(arguments[0]) != 0;
  if (*state == 0 || value == kStop) *state = value ? 2 : 1;
}
void returnBoolean(sqlite3_context* context) {
  const auto* const state = static_cast<int*>(sqlite3_aggregate_context(context, 0));
  if (state != nullptr && *state != 0) sqlite3_result_int(context, *state - 1);
}

void addText(sqlite3_context* context, int, sqlite3_value** arguments) {
  guarded(context, [&] {
    auto** const text = static_cast<std::string**>(sqlite3_aggregate_context(context, sizeof(std::string*)));
    if (text == nullptr || isNull(arguments[0])) return;
    if (*text == nullptr) {
      *text = new std::string(textOf(arguments[0]));
    } else {
      (*text)->append(textOf(arguments[1])).append(textOf(arguments[0]));
    }
  });
}
void returnTexts(sqlite3_context* context) {
  auto** const text = static_cast<std::string**>(sqlite3_aggregate_context(context, 0));
  if (text == nullptr || *text == nullptr) return;
  returnText(context, **text);
  delete *text;
}

}  // namespace

void addFunctions(sqlite::Database& database) {
  const auto add = [&](const char* name, int count, auto function, auto step, auto final) {
    const int result = sqlite3_create_function_v2(database.raw(), name, count, kPlain, nullptr, function,
                                                  step, final, nullptr);
    if (result != SQLITE_OK) database.fail(result);
  };
  add("fold", 1, &fold, nullptr, nullptr);
  add("strpos", 2, &strpos, nullptr, nullptr);
  add("starts_with", 2, &startsWith, nullptr, nullptr);
  add("bool_or", 1, nullptr, &addBoolean<true>, &returnBoolean);
  add("bool_and", 1, nullptr, &addBoolean<false>, &returnBoolean);
  add("string_agg", 2, nullptr, &addText, &returnTexts);
}

}  // namespace inventory
