#include "fuzz/statements.h"

#include <sqlite3.h>

#include <string_view>

#include "fuzz/fuzz.h"

namespace tessel::fuzz {

namespace {

int authorize(void* /*unused*/, int action, const char* name, const char* /*value*/,
              const char* /*database*/, const char* /*trigger*/) {
  const bool isSafe = action != SQLITE_PRAGMA || std::string_view(name) == "writable_schema" ||
                      std::string_view(name) == "user_version";
  return isSafe && action != SQLITE_ATTACH ? SQLITE_OK : SQLITE_DENY;
}

}  // namespace

void runStatements(const char* path, const std::string& statements) {
  constexpr int kSteps = 10000;
  sqlite3* database = nullptr;
  require(sqlite3_open(path, &database) == SQLITE_OK);
  (void)sqlite3_exec(database, "PRAGMA journal_mode = DELETE", nullptr, nullptr, nullptr);
  (void)sqlite3_set_authorizer(database, authorize, nullptr);
  sqlite3_progress_handler(
      database, kSteps, [](void* /*unused*/) { return 1; }, nullptr);
  (void)sqlite3_exec(database, statements.c_str(), nullptr, nullptr, nullptr);
  (void)sqlite3_close(database);
}

}  // namespace tessel::fuzz
