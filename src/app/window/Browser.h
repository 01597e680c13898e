// Browser: opens an address in the user's browser, without waiting for it.
// $BROWSER wins when set (the first of its colon-separated commands, "%s"
// standing for the address, else the address appended); else an application
// window of a Chromium-based browser when one is installed; else xdg-open.
#pragma once

#include <string>
#include <vector>

namespace ombrelo::Browser {

// The command that would open `url`, as argv.
std::vector<std::string> command(const std::string& url);

// Starts it and returns at once; the child is reaped in the background. False
// when it could not be started (logged).
bool open(const std::string& url);

} // namespace ombrelo::Browser
