#include "reports/ZipWriter.h"

#include <array>
#include <limits>
#include <stdexcept>

namespace ombrelo::ZipWriter {

namespace {

constexpr std::uint32_t localHeaderSignature = 0x04034B50;
constexpr std::uint32_t centralHeaderSignature = 0x02014B50;
constexpr std::uint32_t endOfDirectorySignature = 0x06054B50;
constexpr std::uint16_t version = 20;
constexpr std::uint16_t utf8Names = 0x0800;
constexpr std::uint16_t storedMethod = 0;
// DOS date of 1 January 1980 at midnight: the same bytes for the same content,
// whenever it is written.
constexpr std::uint16_t dosTime = 0;
constexpr std::uint16_t dosDate = 33;

const std::array<std::uint32_t, 256>& crcTable() {
    static const std::array<std::uint32_t, 256> table = [] {
        std::array<std::uint32_t, 256> t{};
        for (std::uint32_t n = 0; n < 256; ++n) {
            std::uint32_t c = n;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[n] = c;
        }
        return t;
    }();
    return table;
}

void put16(std::string& out, std::uint16_t value) {
    out.push_back(static_cast<char>(value & 0xFF));
    out.push_back(static_cast<char>(value >> 8));
}

void put32(std::string& out, std::uint32_t value) {
    put16(out, static_cast<std::uint16_t>(value & 0xFFFF));
    put16(out, static_cast<std::uint16_t>(value >> 16));
}

std::uint32_t size32(std::size_t size, const char* what) {
    if (size > std::numeric_limits<std::uint32_t>::max()) throw std::length_error(what);
    return static_cast<std::uint32_t>(size);
}

struct Written {
    std::uint32_t crc;
    std::uint32_t size;
    std::uint16_t nameLength;
    std::uint32_t offset;
};

// The fields the local and the central headers share, from "version needed" on.
void putCommon(std::string& out, const Written& entry) {
    put16(out, version);
    put16(out, utf8Names);
    put16(out, storedMethod);
    put16(out, dosTime);
    put16(out, dosDate);
    put32(out, entry.crc);
    put32(out, entry.size);  // compressed
    put32(out, entry.size);  // uncompressed
    put16(out, entry.nameLength);
    put16(out, 0);  // extra field length
}

} // namespace

std::uint32_t crc32(std::string_view bytes) {
    const auto& table = crcTable();
    std::uint32_t c = 0xFFFFFFFFu;
    for (unsigned char byte : bytes) c = table[(c ^ byte) & 0xFF] ^ (c >> 8);
    return c ^ 0xFFFFFFFFu;
}

std::string stored(const std::vector<Entry>& entries) {
    if (entries.size() > std::numeric_limits<std::uint16_t>::max()) throw std::length_error("ZIP: too many entries");
    std::string out;
    std::vector<Written> written;
    written.reserve(entries.size());
    for (const Entry& entry : entries) {
        if (entry.path.size() > std::numeric_limits<std::uint16_t>::max())
            throw std::length_error("ZIP: name too long");
        Written w{crc32(entry.data), size32(entry.data.size(), "ZIP: entry too large"),
                  static_cast<std::uint16_t>(entry.path.size()), size32(out.size(), "ZIP: archive too large")};
        put32(out, localHeaderSignature);
        putCommon(out, w);
        out += entry.path;
        out += entry.data;
        written.push_back(w);
    }

    std::uint32_t directoryOffset = size32(out.size(), "ZIP: archive too large");
    for (std::size_t i = 0; i < entries.size(); ++i) {
        put32(out, centralHeaderSignature);
        put16(out, version);  // made by
        putCommon(out, written[i]);
        put16(out, 0);  // comment length
        put16(out, 0);  // disk number start
        put16(out, 0);  // internal attributes
        put32(out, 0);  // external attributes
        put32(out, written[i].offset);
        out += entries[i].path;
    }
    std::uint32_t directorySize = size32(out.size() - directoryOffset, "ZIP: archive too large");

    auto count = static_cast<std::uint16_t>(entries.size());
    put32(out, endOfDirectorySignature);
    put16(out, 0);  // this disk
    put16(out, 0);  // disk of the directory
    put16(out, count);
    put16(out, count);
    put32(out, directorySize);
    put32(out, directoryOffset);
    put16(out, 0);  // comment length
    size32(out.size(), "ZIP: archive too large");
    return out;
}

} // namespace ombrelo::ZipWriter
