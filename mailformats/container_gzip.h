#ifndef AMBERVANE_MAILFORMATS_CONTAINER_GZIP_H_
#define AMBERVANE_MAILFORMATS_CONTAINER_GZIP_H_

#include <filesystem>
#include <memory>

#include "mailformats/container.h"

namespace ambervane {

/// A gzip file (RFC 1952) as a container of one member, named after the file. Throws FileError.
std::unique_ptr<Container> openGzip(const std::filesystem::path& file);

/// What `packed` unpacks to, several gzip files behind one another included. `head` is what was
/// already taken from `packed`, still valid. `limit` must outlive the stream.
std::unique_ptr<InputStream> gunzip(std::unique_ptr<InputStream> packed, BytesView head,
                                    ExpansionLimit& limit);

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_CONTAINER_GZIP_H_
