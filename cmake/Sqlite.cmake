# The target ambervane_sqlite: a system SQLite of 3.43 or newer where there is one, else the
# amalgamation that scripts/setup puts into .deps, else whatever the system has (full text then
# needs more room and erased words stay in the index file for longer).
find_package(SQLite3)
set(AMBERVANE_SQLITE_DIR ${PROJECT_SOURCE_DIR}/.deps/sqlite)
add_library(ambervane_sqlite INTERFACE)
if(SQLite3_FOUND AND SQLite3_VERSION VERSION_GREATER_EQUAL 3.43)
  target_link_libraries(ambervane_sqlite INTERFACE SQLite::SQLite3)
elseif(EXISTS ${AMBERVANE_SQLITE_DIR}/sqlite3.c)
  add_library(ambervane_sqlite_amalgamation STATIC ${AMBERVANE_SQLITE_DIR}/sqlite3.c)
  target_include_directories(ambervane_sqlite_amalgamation SYSTEM PUBLIC ${AMBERVANE_SQLITE_DIR})
  target_compile_definitions(ambervane_sqlite_amalgamation
    PUBLIC SQLITE_OMIT_LOAD_EXTENSION
    PRIVATE
    SQLITE_ENABLE_FTS5 SQLITE_THREADSAFE=2 SQLITE_DQS=0 SQLITE_DEFAULT_MEMSTATUS=0
    SQLITE_LIKE_DOESNT_MATCH_BLOBS SQLITE_OMIT_DECLTYPE SQLITE_OMIT_DEPRECATED
    SQLITE_OMIT_SHARED_CACHE SQLITE_USE_ALLOCA SQLITE_STRICT_SUBTYPE=1)
  target_compile_options(ambervane_sqlite_amalgamation PRIVATE -O2 -w)
  target_link_libraries(ambervane_sqlite_amalgamation PRIVATE ${CMAKE_DL_LIBS} m)
  target_link_libraries(ambervane_sqlite INTERFACE ambervane_sqlite_amalgamation)
elseif(SQLite3_FOUND)
  message(WARNING "SQLite ${SQLite3_VERSION} is older than 3.43; run scripts/setup for a newer one")
  target_link_libraries(ambervane_sqlite INTERFACE SQLite::SQLite3)
else()
  message(FATAL_ERROR "No SQLite found; run scripts/setup")
endif()
