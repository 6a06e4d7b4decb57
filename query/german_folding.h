#ifndef AMBERVANE_QUERY_GERMAN_FOLDING_H_
#define AMBERVANE_QUERY_GERMAN_FOLDING_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Makes "Müller" and "Mueller" the same word for search.
///
/// The full-text tokenizer folds "ü" to "u", which meets neither spelling of the other. So the
/// index is given the expanded spelling of every word with an umlaut beside the word itself, and a
/// query asks for a word in every spelling it may have. Texts are UTF-8; ill-formed bytes are
/// passed through. Texts are read, and results given, in composed form (NFC), so that "u" with a
/// combining diaeresis is a "ü". All functions are pure and linear in their input.
namespace ambervane::GermanFolding {

/// Whether `text` holds one of ä ö ü ß å æ ø, in either case. Allocates nothing for
/// text that is in composed form already.
bool needsExpansion(std::string_view text);

/// `text` with each such letter spelt out: "Größe" becomes "Groesse", "Ärger" "Aerger".
std::string expand(std::string_view text);

/// What the index holds besides `text`: the words of `text` with such a letter, expanded and
/// lower-cased, each once, at most `limit` of them, joined with a blank; empty when there are none.
/// A word is a run of letters, numbers and hyphens.
std::string indexVariants(std::string_view text, std::size_t limit);

/// The other way: "ae", "oe", "ue" become umlauts and, with `includeSharpS`, "ss" a sharp s, pair
/// by pair from the left; an umlaut is a capital when its pair began with one. Absent when nothing
/// changes.
std::optional<std::string> contract(std::string_view text, bool includeSharpS = true);

/// What `contract` makes of `word` without and with the sharp s, as far as they differ.
std::vector<std::string> contractions(std::string_view word);

/// Every spelling to ask for: `word` itself first, then its expansion, then its contractions, each
/// once.
std::vector<std::string> queryVariants(std::string_view word);

}  // namespace ambervane::GermanFolding

#endif  // AMBERVANE_QUERY_GERMAN_FOLDING_H_
