#ifndef AMBERVANE_BENCH_INPUTS_H_
#define AMBERVANE_BENCH_INPUTS_H_

#include <cstddef>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "store/prepared_message.h"

// What the cases work on, made once a process and the same in every one. The functions are not
// thread-safe.

namespace ambervane::bench {

/// An archive given with --archive, whose messages the reassembly case reads; empty without it.
std::string& givenArchive();

/// Synthetic messages in CRLF, about a quarter of them with files.
const std::vector<Bytes>& mails();
std::size_t totalBytes(const std::vector<Bytes>& messages);

/// The base64 text of a file of 300 KB, in lines as mail has them, and the file.
const Bytes& encodedFile();
const Bytes& decodedFile();

/// Something to compress, of a kind that an archive meets.
struct Sample {
  const char* name;
  Bytes bytes;
};
const std::vector<Sample>& samples();

/// The messages, prepared with the built-in dictionary at balanced effort.
const std::vector<PreparedMessage>& preparedMails();

// Cases that come from tables, to be registered once, after --archive is known.
void registerCodecCases();
void registerArchiveCases();

}  // namespace ambervane::bench

#endif  // AMBERVANE_BENCH_INPUTS_H_
