#include <array>
#include <exception>

#include "cli/commands.h"
#include "cli/server_options.h"
#include "resources/usage.h"

namespace ambervane {
namespace {

constexpr std::array kCommands = {
    Command{"create",
            "<archive.ambervane> --name <name> [--regimes ch-gebuev,de-gobd,eu-gdpr,us-sec-17a4] "
            "[--compression fast|balanced|smallest]",
            "Make a new archive", create},
    Command{"import",
            "<archive> <source-path> [--account <name>] [--class "
            "<business|accounting|contract|personnel|transient>] [--archive-non-mail]",
            "Take a local mail store in", importSource},
    Command{"sync",
            "<archive> --host <h> --user <u> --password <p> [--port 993] [--no-tls] [--account "
            "<name>] [--folders <a,b>] [--since <yyyy-mm-dd>] | <archive> --scheduled",
            "Collect mail from a server", syncIMAP},
    Command{"copy",
            "--from-host <h> --from-user <u> --from-password <p> --to-host <h> --to-user <u> "
            "--to-password <p> [--dry-run]",
            "Copy mailboxes from one server to another", nullptr},
    Command{"search", "<archive> <query…> [--limit 50] [--sort relevance|date|size]",
            "Find messages", search},
    Command{"show", "<archive> <id|sha256> [--raw] [--headers]", "Show one message", show},
    Command{"export",
            "<archive> <destination> [--format mboxrd|maildir|eml|pdf|portable] [--query <q>] "
            "[--name-pattern <p>] [--no-images] [--fetch-linked] [--attach-files] [--zip] "
            "[--language en|de|fr|it|es]",
            "Write mail out with its evidence", nullptr},
    Command{"upload", "<reimport-manifest.json> --host <h> --user <u> [--prefix <p>] [--dry-run]",
            "Put exported mail back on a server", nullptr},
    Command{"verify", "<archive> [--deep]", "Check that the archive still stands as it says",
            verify},
    Command{"seal", "<archive>", "Write a seal now", sealCommand},
    Command{"schedule",
            "<archive> [--every hourly|daily|weekly] [--at HH:MM] [--weekday 1-7] [--off] "
            "[--status] [--move]",
            "Collect automatically", nullptr},
    Command{"tag",
            "<archive> [--add <name> --query <q>] [--remove <name> --query <q>] [--colour <name>] "
            "[--list]",
            "Tag messages", tagCommand},
    Command{"print",
            "<archive> --out <file.pdf|file.txt> [--query <q>] [--title <t>] [--headers-only] "
            "[--language de|en|fr|it|es]",
            "Print messages to a file", nullptr},
    Command{"merge", "<target-archive> <source-archive>", "Take another archive's messages in",
            mergeCommand},
    Command{"convert",
            "<archive> <new-archive.ambervane> [--compression fast|balanced|smallest] [--name <n>]",
            "Store the same mail differently in a second archive", convertCommand},
    Command{"query", "<archive> --sql \"SELECT …\" [--format table|csv|tsv] [--schema]",
            "Ask the catalog in SQL, reading only", queryCommand},
    Command{"table", "<archive> --out <file> [--format csv|tsv|sql] [--query <q>]",
            "Write the message index as a table", tableCommand},
    Command{"stats", "<archive>", "Say what the archive holds", stats},
    Command{"retention", "<archive> [--dispose --approved-by <who> --reason <r> --confirm DISPOSE]",
            "Review what is past its period", retention},
    Command{"policy",
            "<archive> [--second-copy <where>] [--procedure <ref>] [--timestamp-authority <url>] "
            "[--disposal reportOnly|manualApproval] [--regimes …] [--set-class …] [--remove-class "
            "id] [--default-class id] [--add-rule …] [--remove-rule name] [--financial-year-end "
            "<month 1–12>] --reason <why>",
            "Show or change the retention policy", policy},
    Command{"reclassify", "<archive>", "Apply the rules to archived messages again",
            reclassifyCommand},
    Command{"hold",
            "<archive> list|place|release [--name <n>] [--reason <r>] [--custodian <c>] "
            "[--participant <a>] [--folder <f>] [--term <t>] [--id <holdID>]",
            "Keep legal holds", hold},
    Command{"erase", "<archive> <id> --reason <r> --requester <who>",
            "Destroy the key of one message", erase},
    Command{"request",
            "<archive> --participant <address> [--participant <another>…] [--erase --approved-by "
            "<who> --reason <r> --confirm DISPOSE]",
            "Review or carry out a data subject request", request},
    Command{"attachments", "<archive> <id> [--extract <dir>]",
            "List or extract a message's attachments", attachments},
    Command{"duplicates", "<archive> [--min 2]", "List files that several messages carry",
            duplicates},
    Command{"reindex", "<archive>", "Build the search index anew", reindex},
    Command{"smart", "<archive> list|add|show|count|delete [<name>] [<query…>]",
            "Keep smart folders", smart},
    Command{"bench", "<archive> [--messages 100000] [--accounts 3]",
            "Measure an archive of synthetic mail", bench, false},
    Command{"gaps", "<archive> [--quiet-days 3] [--limit 20]",
            "Look for mail the archive should hold and does not", gaps},
    Command{"control",
            "<archive> --by <name> [--role <role>] [--note <text>] [--pdf <file or folder>] "
            "[--language de|en|fr|it|es]",
            "Record a dated, attributed control", control},
    Command{"procedure-template", "<file.md>", "Write the template of the procedure document",
            procedureTemplate},
    Command{"timestamp",
            "--url <tsa> [--data <text>] [--write-request <file> | --parse-reply <file>]",
            "Try a time-stamping authority", timestamp, false},
    Command{"rebuild-catalog", "<archive>", "Rebuild the database from the pack files",
            rebuildCatalogCommand},
    Command{"check", "--host <h> --user <u> --password <p> [--port 993] [--no-tls]",
            "Try a connection to a server", check},
    Command{"detect", "<path>", "Say what kind of mail store a path holds", detect},
};

int run(const Arguments& arguments, Console& console) {
  try {
    const std::string& name = arguments.command;
    for (const Command& command : kCommands) {
      if (command.name != name) continue;
      if (command.function == nullptr) {
        throw CLIError::usage("ambervane " + name + " is not part of this version yet");
      }
      const int status = command.function(arguments, console);
      console.out.flush();
      if (!console.out) throw CLIError::usage("The output could not be written whole");
      return status;
    }
    console.out << resources::usage() << std::flush;
    return name == "help" || name == "--help" || name == "-h" ? kExitSuccess : kExitUnknownCommand;
  } catch (const std::exception& error) {
    console.out.flush();
    console.err << "error: " << error.what() << "\n" << std::flush;
    return kExitFailure;
  }
}

}  // namespace

std::span<const Command> commandTable() { return kCommands; }

int runCommandLine(const std::vector<std::string>& words, Console& console) {
  Arguments arguments = Arguments::parse(words);
  const int status = run(arguments, console);
  eraseSecrets(arguments);
  return status;
}

}  // namespace ambervane
