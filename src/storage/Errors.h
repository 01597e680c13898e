// The storage layer's error vocabulary. Every SQLite failure becomes a
// DatabaseError carrying SQLite's message; a file written by a newer version of
// the program is refused with NewerDatabaseError before anything touches it.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace ombrelo {

class DatabaseError : public std::runtime_error {
public:
    // An empty message becomes "erreur inconnue". `code` is SQLite's result
    // code when SQLite gave one.
    explicit DatabaseError(const std::string& description, int code = 0)
        : std::runtime_error(description.empty() ? "erreur inconnue" : description), code_(code) {}
    std::string description() const { return what(); }
    // The file is not a database or is damaged: trying again will not help.
    bool unusableFile() const { return (code_ & 0xff) == 26 /* SQLITE_NOTADB */ || (code_ & 0xff) == 11 /* SQLITE_CORRUPT */; }

private:
    int code_;
};

class NewerDatabaseError : public std::runtime_error {
public:
    NewerDatabaseError(std::int64_t found, std::int64_t known)
        : std::runtime_error("schema " + std::to_string(found) + " > " + std::to_string(known)), version(found) {}
    std::string description() const { return what(); }

    const std::int64_t version;
};

} // namespace ombrelo
