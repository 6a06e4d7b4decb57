#ifndef AMBERVANE_MAILFORMATS_CONTAINER_ZIP_H_
#define AMBERVANE_MAILFORMATS_CONTAINER_ZIP_H_

#include <filesystem>
#include <memory>

#include "mailformats/container.h"

namespace ambervane {

/// A ZIP file, ZIP64 included. Its directory is held in memory; folders and links are left out.
/// Names that say so are UTF-8, others are when they can be, else code page 437. Throws
/// ContainerError.
std::unique_ptr<Container> openZip(const std::filesystem::path& file);

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_CONTAINER_ZIP_H_
