#include "support/JSONText.h"

namespace ombrelo {

namespace {

// nlohmann's objects are ordered maps, so members come out sorted.
void write(const nlohmann::json& value, int depth, std::string& out) {
    std::string indent(2 * (depth + 1), ' ');
    std::string closing(2 * depth, ' ');
    if (value.is_object() && !value.empty()) {
        out += "{\n";
        bool first = true;
        for (const auto& [key, member] : value.items()) {
            if (!first) out += ",\n";
            first = false;
            out += indent + nlohmann::json(key).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + " : ";
            write(member, depth + 1, out);
        }
        out += "\n" + closing + "}";
    } else if (value.is_array() && !value.empty()) {
        out += "[\n";
        for (std::size_t i = 0; i < value.size(); ++i) {
            if (i > 0) out += ",\n";
            out += indent;
            write(value[i], depth + 1, out);
        }
        out += "\n" + closing + "]";
    } else {
        out += value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
}

} // namespace

std::string prettyJSON(const nlohmann::json& value) {
    std::string out;
    write(value, 0, out);
    return out;
}

} // namespace ombrelo
