// Markup: text made safe for XML and HTML, shared by the workbook and the page.
#pragma once

#include <string>
#include <string_view>

namespace ombrelo::markup {

// "&", "<", ">" and '"' as entities. Control characters that XML 1.0 forbids
// (a stray one in a window title would make the whole workbook unreadable) are
// dropped; tab, line feed and carriage return stay.
std::string escape(std::string_view text);

} // namespace ombrelo::markup
