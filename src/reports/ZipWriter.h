// ZipWriter: a ZIP archive of stored (uncompressed) entries, enough for the
// spreadsheet package the exports write. Exports are one small sheet, so
// compression would buy little and cost a dependency.
//
// 32-bit sizes and offsets only (no ZIP64): an archive over 4 GiB is refused.
// Pure functions; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ombrelo::ZipWriter {

struct Entry {
    std::string path;  // UTF-8, "/" between folders
    std::string data;  // the bytes
};

// The archive of `entries`, in order. Throws std::length_error when an entry
// or the archive exceeds the 32-bit limits of the format.
std::string stored(const std::vector<Entry>& entries);

// The standard reflected CRC-32 (polynomial 0xEDB88320), as ZIP stores it.
std::uint32_t crc32(std::string_view bytes);

} // namespace ombrelo::ZipWriter
