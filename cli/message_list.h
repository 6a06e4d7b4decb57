#ifndef AMBERVANE_CLI_MESSAGE_LIST_H_
#define AMBERVANE_CLI_MESSAGE_LIST_H_

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

#include "cli/arguments.h"
#include "search/search_archive.h"

namespace ambervane {

/// How many messages a list has when nobody says.
inline constexpr std::int64_t kDefaultMessageLimit = 50;
/// Columns of the sender's name in a list.
inline constexpr std::size_t kSenderColumns = 28;
/// Characters of the subject where a line has more columns than a search shows.
inline constexpr std::size_t kShortSubjectCharacters = 52;

/// The positional words from `first` on, joined by one blank, so that a query need not be quoted.
std::string wordsFrom(const Arguments& arguments, std::size_t first);

/// Who sent it, as people say it: the name, else the address.
std::string displaySender(const MessageRow& row);

/// How many were found and how fast, then a line for each hit.
void printHits(const SearchResult& result, std::ostream& out);

/// Says at the end of the output that the journal could not take an entry, where that is so.
void noteUnrecorded(const MailArchive& archive, std::ostream& out);

}  // namespace ambervane

#endif  // AMBERVANE_CLI_MESSAGE_LIST_H_
