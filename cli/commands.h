#ifndef AMBERVANE_CLI_COMMANDS_H_
#define AMBERVANE_CLI_COMMANDS_H_

#include <filesystem>
#include <memory>
#include <span>
#include <string_view>

#include "cli/arguments.h"
#include "cli/console.h"
#include "store/mail_archive.h"

namespace ambervane {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUnknownCommand = 2;
inline constexpr int kExitInterrupted = 130;

/// Carries a command out and returns the exit status. Throws for every failure; the caller turns
/// that into one line and `kExitFailure`.
using CommandFunction = int (*)(const Arguments& arguments, Console& console);

/// A row of the dispatch table, from which manual page and completions can be made.
struct Command {
  std::string_view name;
  std::string_view synopsis;  ///< operands and options
  std::string_view summary;   ///< one line
  CommandFunction function;   ///< null: not part of this version
  bool inUsage = true;        ///< development aids stay out of the usage text
};

/// Every command, in the order of dispatch.
std::span<const Command> commandTable();

/// Runs one command line (the words behind the program's path) and returns the exit status; no
/// exception leaves it.
int runCommandLine(const std::vector<std::string>& words, Console& console);

// One function per command.
int create(const Arguments& arguments, Console& console);
int importSource(const Arguments& arguments, Console& console);
int syncIMAP(const Arguments& arguments, Console& console);
int show(const Arguments& arguments, Console& console);
int stats(const Arguments& arguments, Console& console);
int attachments(const Arguments& arguments, Console& console);
int duplicates(const Arguments& arguments, Console& console);
int search(const Arguments& arguments, Console& console);
int tagCommand(const Arguments& arguments, Console& console);
int queryCommand(const Arguments& arguments, Console& console);
int tableCommand(const Arguments& arguments, Console& console);
int reindex(const Arguments& arguments, Console& console);
int smart(const Arguments& arguments, Console& console);
int sealCommand(const Arguments& arguments, Console& console);
int check(const Arguments& arguments, Console& console);
int detect(const Arguments& arguments, Console& console);
int bench(const Arguments& arguments, Console& console);
int timestamp(const Arguments& arguments, Console& console);
int verify(const Arguments& arguments, Console& console);
int gaps(const Arguments& arguments, Console& console);
int control(const Arguments& arguments, Console& console);
int procedureTemplate(const Arguments& arguments, Console& console);
int retention(const Arguments& arguments, Console& console);
int policy(const Arguments& arguments, Console& console);
int reclassifyCommand(const Arguments& arguments, Console& console);
int hold(const Arguments& arguments, Console& console);
int erase(const Arguments& arguments, Console& console);
int request(const Arguments& arguments, Console& console);
int mergeCommand(const Arguments& arguments, Console& console);
int convertCommand(const Arguments& arguments, Console& console);
int rebuildCatalogCommand(const Arguments& arguments, Console& console);

// What commands share.

/// `text` with a leading tilde expanded, absolute, without "." and ".." and a closing slash.
std::filesystem::path standardizedPath(const std::string& text);

/// Opens the archive named by the first positional word, and says on `err` what limits the
/// opening. Throws CLIError and what opening throws.
std::unique_ptr<MailArchive> openArchive(const Arguments& arguments, Console& console,
                                         OpenMode mode);

/// Says on `err` when the texts of attachments are to be indexed and the program that reads PDF and
/// office documents is not installed.
void noteMissingDocumentHelper(const MailArchive& archive, Console& console);

/// The message a word names: a row by its number, else by its digest. Throws CLIError.
MessageRow findMessage(MailArchive& archive, const std::string& word);

/// Says where words of what was erased may still stand: see `ErasedContent`, and catalogs that a
/// rebuild has set aside.
void noteRemnants(const MailArchive& archive, bool isForgotten, Console& console);

}  // namespace ambervane

#endif  // AMBERVANE_CLI_COMMANDS_H_
