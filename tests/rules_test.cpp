// Rule files: their header and the SQL that they may use.

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

#include "host/query/pattern.h"
#include "host/query/rule_set.h"
#include "host/query/sql_tokens.h"

namespace {

using host::Rule;

const std::string kHeader =
    "-- title: T\n-- severity: low\n-- category: security\n-- why: W\n-- fix: F\n-- requires: "
    "ftp_site.path\n";
const std::string kQuery = "select object_id, path = '' as holds\nfrom ftp_site\n";

std::string errorOf(const std::string& text) {
  try {
    Rule::parse("r", "r.sql", text).check();
  } catch (const host::RuleError& error) {
    return error.what();
  }
  return "";
}

TEST(Rules, AreTokenizedAsInBothDatabases) {
  std::string all;
  for (const host::SqlToken& token :
       host::sqlTokens("a1_\xC3\x9C 'it''s --' \"x\"\"y\"--'z\n<= 12 \t-:p 'open"))
    all += std::to_string(static_cast<int>(token.kind)) + std::string(token.text) + "|";
  EXPECT_EQ(all, "0a1_\xC3\x9C|2'it''s --'|1\"x\"\"y\"|4<|4=|312|4-|4:|0p|2'open|");
}

TEST(Rules, AreSelectedByPatterns) {
  const std::tuple<const char*, const char*, bool> cases[] = {{"pool-local-system", "pool-*", true},
                                                              {"pool", "POOL", true},
                                                              {"pool", "p?ol", true},
                                                              {"pool", "*ol*", true},
                                                              {"abcabd", "a*bd", true},
                                                              {"", "*", true},
                                                              {"", "?", false},
                                                              {"\xC3\x9C", "\xC3\xBC", true}};
  for (const auto& [text, pattern, expected] : cases)
    EXPECT_EQ(host::matchesPattern(text, pattern), expected) << text << pattern;
}

TEST(Rules, ParseTheirHeader) {
  const Rule rule = Rule::parse(
      "r", "r.sql",
      "-- title: A: b\r\n-- severity: High\n-- category: security\n-- why: One\n--   two\n--\tthree\n-- fix: "
      "F\n"
      "-- references: STIG | V-1 | https://x/?a\n-- references: Book\n-- requires: ftp_site.path app_pool\n"
      "-- columns: path text identifying, n integer\n-- param: at text C: x\n-- param: most integer -5\n"
      "-- param: really boolean true\nselect ':at' as x, :most, :at, :really, fold(fold(path) || (')'))");
  EXPECT_EQ(rule.title + "|" + rule.why, "A: b|One two three");
  EXPECT_EQ(rule.severity, host::Severity::kHigh);
  EXPECT_EQ(rule.references[0].id + rule.references[0].address + rule.references[1].name,
            "V-1https://x/?aBook");
  EXPECT_EQ(rule.requirements[0].column + rule.requirements[1].view, "pathapp_pool");
  EXPECT_TRUE(rule.columns[0].isIdentifying && !rule.columns[1].isIdentifying);
  EXPECT_EQ(rule.parameterValues(), (inventory::Parameters{"C: x", std::int64_t{-5}, std::int64_t{1}}));
  EXPECT_EQ(rule.query(inventory::Dialect(inventory::Dialect::Kind::kSqlite)),
            "select ':at' as x, cast($2 as bigint), cast($1 as text), (cast($3 as bigint) <> 0), "
            "fold(fold(path) || (')'))");
  const std::string postgres = rule.query(inventory::Dialect(inventory::Dialect::Kind::kPostgres));
  const std::string end = ") collate \"und-x-icu\") collate \"C\")";
  EXPECT_EQ(postgres.substr(postgres.find("(lower")), "(lower(((lower((path" + end + " || (')')" + end);
}

TEST(Rules, ReportTheLineOfAnError) {
  EXPECT_EQ(errorOf(kHeader + kQuery), "");
  const std::pair<std::string, const char*> cases[] = {
      {"", "r.sql:1: the header has no 'title'"},
      {"-- title: T\n" + kHeader + kQuery, "r.sql:2: 'title' is given twice"},
      {kHeader + "-- severity: low\n" + kQuery, "r.sql:7: 'severity' is given twice"},
      {"-- severity: bad\n", "r.sql:1: unknown severity 'bad'"},
      {"-- title: T\n-- category: none\n", "r.sql:2: unknown category 'none'"},
      {"-- title:\n", "r.sql:1: 'title' has no value"},
      {"-- title\n", "r.sql:1: 'title' is not a header line"},
      {"-- titel: T\n", "r.sql:1: unknown key 'titel'"},
      {kHeader + "-- requires: tblGeneral\n", "r.sql:7: 'requires': no view 'tblGeneral'"},
      {kHeader + "-- requires: ftp_site.paht\n",
       "r.sql:7: 'requires': the view ftp_site has no column 'paht'"},
      {kHeader + "-- columns: path\n", "r.sql:7: invalid column"},
      {kHeader + "-- param: n integer 99999999999999999999\n",
       "r.sql:7: '99999999999999999999' is not a valid value"},
      {kHeader + "-- param: n boolean yes\n", "r.sql:7: 'yes' is not a valid value"},
      {kHeader + "-- references: a | b | c | d\n", "r.sql:7: invalid reference"},
      {kHeader + "-- references: |\n", "r.sql:7: invalid reference"},
      {kHeader + "-- columns: other text\n" + kQuery, "r.sql:8: no such column: other"},
      {kHeader + "select object_id\nfrom ftp_site", "r.sql:7: no such column: holds"},
      {kHeader + "select object_id, true as holds\nfrom ftp_site\nwhere pahts = 1",
       "r.sql:9: no such column: pahts"},
      {kHeader + "-- param: n integer 1\nselect object_id, :n = 1 and path =\n:m as holds from ftp_site",
       "r.sql:9: the header has no 'param: m TYPE DEFAULT'"},
      {kHeader + "select object_id, true as holds from ftp_site)\nr union (select 1, 2", "r.sql:7: "},
      {kHeader + "select object_id, true as holds from (select object_id from ftp_site", "incomplete input"},
  };
  for (const auto& [text, words] : cases)
    EXPECT_NE(errorOf(text).find(words), std::string::npos) << text << "\n" << errorOf(text);
}

// Each alone, and in a common table expression.
TEST(Rules, ReadViewsOnly) {
  const std::pair<const char*, const char*> refused[] = {
      {"insert into ftp_site (path) values ('')", "only a SELECT"},
      {"attach 'x' as y", "only a SELECT"},
      {"pragma user_version = 7", "only a SELECT"},
      {"explain select object_id, true as holds from ftp_site", "syntax error"},
      {"select object_id, true as holds from ftp_site; delete from objects", "';' is not available"},
      {"select object_id, true as holds from ftp_site /* x */", "'/*' is not available"},
      {"select object_id, path like 'x' as holds from ftp_site", "'like' is not available"},
      {"select object_id, cast(path as integer) = 1 as holds from ftp_site", "'cast' is not available"},
      {"select object_id, path == 'x' as holds from ftp_site", "'==' is not available"},
      {"select object_id, path is 'x' as holds from ftp_site", "'is' without"},
      {"select object_id, path = \"x\" as holds from ftp_site", "no such column: x"},
      {"select object_id, path collate nocase = 'x' as holds from ftp_site limit 1", "'collate'"},
      {"select object_id, path not null as holds from ftp_site", "'not null' without 'is'"},
      {"select rowid as object_id, true as holds from ftp_site", "'rowid' is not available"},
      {"select object_id, path = e'x' as holds from ftp_site", "quotation mark"},
      {"select object_id, true as holds --\r, version()\n from ftp_site", "carriage return"},
      {"with recursive r(n) as (select 1 union all select n + 1 from r) select n as object_id, true as holds "
       "from r",
       "recursion"},
      {"with r(n) as (select 1 union all select n + 1 from r) select n as object_id, true as holds from r",
       "recursion"},
  };
  for (const auto& [sql, words] : refused) {
    const std::string error = errorOf(kHeader + sql);
    EXPECT_TRUE(error.starts_with("r.sql:7: ") && error.find(words) != error.npos) << sql << "\n" << error;
  }
  const std::string start = "select object_id, true as holds from ftp_site where ";
  const char* const unavailable[] = {
      "exists (select 1 from \"tblGeneral\")",
      "exists (select name from sqlite_schema)",
      "(select count(*) from SQLITE_Temp_Master) > 0",
      "exists (select name from pragma_table_info('objects'))",
      "exists (select value from json_each('[1]'))",
      "exists (select * from selected)",
      "exists (select * from pg_authid)",
      "exists (select * from main.objects)",
      "readfile('/etc/passwd') is not null",
      "length(zeroblob(1000000000)) > 0",
      "round(identifier) > 0",
  };
  for (const std::string condition : unavailable) {
    const std::string query = start + condition;
    EXPECT_NE(errorOf(kHeader + query), "") << condition;
    EXPECT_NE(errorOf(kHeader + "with x as (" + query + ") select object_id, holds from x"), "") << condition;
    EXPECT_NE(errorOf(kHeader + "with ftp_site as (" + query + ") select object_id, holds from ftp_site"), "")
        << condition;
  }
  EXPECT_EQ(
      errorOf(kHeader + "with \"like\" as (" + start + "path is not distinct from 'limit') -- ; cast\n" +
              "select object_id, holds from \"like\" where holds is not true"),
      "");
}

}  // namespace
