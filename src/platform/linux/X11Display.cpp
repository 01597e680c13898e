#include "platform/linux/X11Display.h"

#include "support/Log.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/scrnsaver.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <cstdlib>
#include <unistd.h>

namespace ombrelo::platform {

namespace {

std::atomic<bool> errorSeen{false};

// A window closing between two requests is ordinary: note it, never exit.
int recordError(Display*, XErrorEvent*) {
    errorSeen = true;
    return 0;
}

// Xlib ends the process after this returns; say why so the journal shows it.
int connectionLost(Display*) {
    Log::get("capture")->error("Connexion au serveur X perdue");
    return 0;
}

Display* asDisplay(void* display) { return static_cast<Display*>(display); }

// Longest property read, in 32-bit units: titles longer than 64 KiB are cut.
constexpr long maxPropertyLength = 16384;

void appendUTF8(std::string& out, unsigned code) {
    if (code < 0x80) {
        out += char(code);
    } else if (code < 0x800) {
        out += char(0xC0 | (code >> 6));
        out += char(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += char(0xE0 | (code >> 12));
        out += char(0x80 | ((code >> 6) & 0x3F));
        out += char(0x80 | (code & 0x3F));
    } else {
        out += char(0xF0 | (code >> 18));
        out += char(0x80 | ((code >> 12) & 0x3F));
        out += char(0x80 | ((code >> 6) & 0x3F));
        out += char(0x80 | (code & 0x3F));
    }
}

constexpr unsigned replacement = 0xFFFD;

std::optional<std::string> nonEmpty(std::string text) {
    if (text.empty()) return std::nullopt;
    return text;
}

} // namespace

struct X11Display::Atoms {
    Atom activeWindow, windowType, typeDesktop, typeDock, wmName, utf8String, wmPid, gtkApplicationID,
        clientMachine;

    explicit Atoms(Display* display) {
        auto atom = [display](const char* name) { return XInternAtom(display, name, False); };
        activeWindow = atom("_NET_ACTIVE_WINDOW");
        windowType = atom("_NET_WM_WINDOW_TYPE");
        typeDesktop = atom("_NET_WM_WINDOW_TYPE_DESKTOP");
        typeDock = atom("_NET_WM_WINDOW_TYPE_DOCK");
        wmName = atom("_NET_WM_NAME");
        utf8String = atom("UTF8_STRING");
        wmPid = atom("_NET_WM_PID");
        gtkApplicationID = atom("_GTK_APPLICATION_ID");
        clientMachine = XA_WM_CLIENT_MACHINE;
    }
};

void X11Display::DisplayClose::operator()(void* display) const { XCloseDisplay(asDisplay(display)); }

X11Display::X11Display(const std::string& name) {
    // Xlib keeps one process-wide handler; installing it twice is harmless.
    XSetErrorHandler(recordError);
    XSetIOErrorHandler(connectionLost);
    Display* display = XOpenDisplay(name.empty() ? nullptr : name.c_str());
    if (!display) {
        const char* shown = name.empty() ? std::getenv("DISPLAY") : name.c_str();
        throw DisplayError(std::string("cannot open X display ") + (shown && *shown ? shown : "(DISPLAY unset)"));
    }
    display_.reset(display);
    atoms_ = std::make_unique<Atoms>(display);
    int eventBase = 0, errorBase = 0;
    idleExtension_ = XScreenSaverQueryExtension(display, &eventBase, &errorBase);
    char host[256] = {};
    if (::gethostname(host, sizeof host - 1) == 0) hostname_ = host;
}

X11Display::~X11Display() = default;

int X11Display::fd() const { return ConnectionNumber(asDisplay(display_.get())); }

WindowID X11Display::root() const { return DefaultRootWindow(asDisplay(display_.get())); }

void X11Display::watchRoot() {
    XSelectInput(asDisplay(display_.get()), root(), PropertyChangeMask);
    XFlush(asDisplay(display_.get()));
}

bool X11Display::drainEvents() {
    Display* display = asDisplay(display_.get());
    bool activeChanged = false;
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type == PropertyNotify && event.xproperty.window == root() &&
            event.xproperty.atom == atoms_->activeWindow)
            activeChanged = true;
    }
    return activeChanged;
}

std::optional<std::vector<unsigned char>> X11Display::property(WindowID window, unsigned long atom,
                                                                unsigned long type, int* format,
                                                                unsigned long* actualType) {
    Atom gotType = None;
    int gotFormat = 0;
    unsigned long count = 0, remaining = 0;
    unsigned char* data = nullptr;
    int status = XGetWindowProperty(asDisplay(display_.get()), window, atom, 0, maxPropertyLength, False, type,
                                    &gotType, &gotFormat, &count, &remaining, &data);
    if (status != Success || gotType == None) {
        if (data) XFree(data);
        return std::nullopt;
    }
    // Format 32 items are C longs in memory, whatever their size on the wire.
    std::size_t itemSize = gotFormat == 32 ? sizeof(long) : gotFormat == 16 ? sizeof(short) : 1;
    std::vector<unsigned char> bytes(data, data + count * itemSize);
    XFree(data);
    if (format) *format = gotFormat;
    if (actualType) *actualType = gotType;
    return bytes;
}

namespace {

std::optional<unsigned long> firstLong(const std::optional<std::vector<unsigned char>>& bytes) {
    if (!bytes || bytes->size() < sizeof(long)) return std::nullopt;
    unsigned long value = 0;
    std::memcpy(&value, bytes->data(), sizeof(long));
    return value;
}

} // namespace

std::optional<WindowID> X11Display::activeWindow() {
    auto window = firstLong(property(root(), atoms_->activeWindow, XA_WINDOW));
    if (!window || *window == 0 || *window == root()) return std::nullopt;
    return *window;
}

bool X11Display::isApplicationWindow(WindowID window) {
    int format = 0;
    auto types = property(window, atoms_->windowType, XA_ATOM, &format);
    if (!types || format != 32) return true;
    for (std::size_t at = 0; at + sizeof(long) <= types->size(); at += sizeof(long)) {
        unsigned long type = 0;
        std::memcpy(&type, types->data() + at, sizeof(long));
        if (type == atoms_->typeDesktop || type == atoms_->typeDock) return false;
    }
    return true;
}

std::optional<WindowClass> X11Display::windowClass(WindowID window) {
    auto bytes = property(window, XA_WM_CLASS, XA_STRING);
    if (!bytes || bytes->empty()) return std::nullopt;
    // Two NUL-terminated Latin-1 strings: instance, then class.
    auto end = std::find(bytes->begin(), bytes->end(), '\0');
    std::vector<unsigned char> instance(bytes->begin(), end);
    std::vector<unsigned char> name;
    if (end != bytes->end()) name.assign(end + 1, std::find(end + 1, bytes->end(), '\0'));
    WindowClass result{utf8FromLatin1(instance), utf8FromLatin1(name)};
    if (result.instance.empty() && result.name.empty()) return std::nullopt;
    return result;
}

std::optional<std::string> X11Display::title(WindowID window) {
    if (auto name = property(window, atoms_->wmName, atoms_->utf8String))
        if (auto text = nonEmpty(utf8FromUTF8Property(*name))) return text;
    unsigned long type = None;
    auto name = property(window, XA_WM_NAME, AnyPropertyType, nullptr, &type);
    if (!name) return std::nullopt;
    if (type == XA_STRING) return nonEmpty(utf8FromLatin1(*name));
    if (type == atoms_->utf8String) return nonEmpty(utf8FromUTF8Property(*name));
    // COMPOUND_TEXT and other encodings: only the locale's converter knows them.
    XTextProperty text{name->data(), type, 8, name->size()};
    char** list = nullptr;
    int count = 0;
    std::optional<std::string> result;
    if (Xutf8TextPropertyToTextList(asDisplay(display_.get()), &text, &list, &count) >= Success && count > 0 &&
        list) {
        std::string converted(list[0]);
        result = nonEmpty(utf8FromUTF8Property(std::vector<unsigned char>(converted.begin(), converted.end())));
    }
    if (list) XFreeStringList(list);
    return result;
}

std::optional<int> X11Display::pid(WindowID window) {
    auto value = firstLong(property(window, atoms_->wmPid, XA_CARDINAL));
    if (!value || *value == 0 || *value > 0x7fffffff) return std::nullopt;
    // A client on another machine (ssh -X) reports a process id of that machine.
    if (auto machine = property(window, atoms_->clientMachine, XA_STRING))
        if (!hostname_.empty() && utf8FromLatin1(*machine) != hostname_) return std::nullopt;
    return int(*value);
}

std::optional<std::string> X11Display::gtkApplicationID(WindowID window) {
    auto bytes = property(window, atoms_->gtkApplicationID, atoms_->utf8String);
    if (!bytes) return std::nullopt;
    return nonEmpty(utf8FromUTF8Property(*bytes));
}

std::optional<std::uint64_t> X11Display::idleMilliseconds() {
    if (!idleExtension_) return std::nullopt;
    struct InfoFree {
        void operator()(XScreenSaverInfo* info) const { XFree(info); }
    };
    static std::unique_ptr<XScreenSaverInfo, InfoFree> info(XScreenSaverAllocInfo());
    if (!info || !XScreenSaverQueryInfo(asDisplay(display_.get()), root(), info.get())) return std::nullopt;
    return info->idle;
}

bool X11Display::takeErrorFlag() { return errorSeen.exchange(false); }

std::string utf8FromLatin1(const std::vector<unsigned char>& bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (unsigned char byte : bytes) {
        if (byte == 0) break;
        appendUTF8(out, byte);
    }
    return out;
}

std::string utf8FromUTF8Property(const std::vector<unsigned char>& bytes) {
    // Decode strictly and re-encode, so that what reaches the database is always
    // valid UTF-8 whatever a client wrote.
    std::string out;
    out.reserve(bytes.size());
    std::size_t i = 0, n = bytes.size();
    while (i < n) {
        unsigned char lead = bytes[i];
        if (lead == 0) break;
        int length = lead < 0x80 ? 1 : (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
        if (length == 0 || i + length > n) {
            appendUTF8(out, replacement);
            ++i;
            continue;
        }
        unsigned code = length == 1 ? lead : lead & (0x7F >> length);
        bool valid = true;
        for (int k = 1; k < length; ++k) {
            if ((bytes[i + k] & 0xC0) != 0x80) {
                valid = false;
                break;
            }
            code = (code << 6) | (bytes[i + k] & 0x3F);
        }
        bool overlong = (length == 2 && code < 0x80) || (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
        if (!valid || overlong || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
            appendUTF8(out, replacement);
            ++i;
            continue;
        }
        appendUTF8(out, code);
        i += length;
    }
    return out;
}

} // namespace ombrelo::platform
