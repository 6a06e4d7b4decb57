/// The least a search in SQLite can cost: opens a database for reading, runs one statement, prints
/// its rows. What the program `sqlite3` does, with the SQLite that the archive is written with (the
/// system's may be too old to read its index).
///
///     bare_sqlite DATABASE SQL
#include <sqlite3.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: bare_sqlite DATABASE SQL\n", stderr);
    return 2;
  }
  sqlite3* database = nullptr;
  sqlite3_stmt* statement = nullptr;
  int code = sqlite3_open_v2(argv[1], &database, SQLITE_OPEN_READONLY, nullptr);
  if (code == SQLITE_OK) code = sqlite3_prepare_v2(database, argv[2], -1, &statement, nullptr);
  if (code == SQLITE_OK) {
    while ((code = sqlite3_step(statement)) == SQLITE_ROW) {
      for (int column = 0; column < sqlite3_column_count(statement); ++column) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
        std::printf("%s%s", column > 0 ? "|" : "", text != nullptr ? text : "");
      }
      std::puts("");
    }
  }
  if (code != SQLITE_DONE) std::fprintf(stderr, "error: %s\n", sqlite3_errmsg(database));
  sqlite3_finalize(statement);
  sqlite3_close(database);
  return code == SQLITE_DONE ? 0 : 1;
}
