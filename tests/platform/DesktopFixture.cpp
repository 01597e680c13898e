#include "platform/DesktopFixture.h"

#include "testing/TestSupport.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sys/prctl.h>
#include <stdexcept>
#include <utility>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

extern char** environ;

namespace ombrelo::testing {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// ---- Processes -------------------------------------------------------------------

namespace {

// Reads one line from `fd`, waiting at most `timeout`.
std::optional<std::string> readLine(int fd, std::chrono::milliseconds timeout) {
    std::string line;
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd poller{fd, POLLIN, 0};
        if (::poll(&poller, 1, 100) <= 0) continue;
        char c;
        ssize_t n = ::read(fd, &c, 1);
        if (n <= 0) return std::nullopt;
        if (c == '\n') return line;
        line += c;
    }
    return std::nullopt;
}

} // namespace

// ---- X server -----------------------------------------------------------------------

namespace {

std::string& unavailableReason() {
    static std::string reason;
    return reason;
}

std::optional<unsigned long> rootWindowProperty(Display* display, const char* name) {
    Atom atom = XInternAtom(display, name, False);
    Atom type;
    int format;
    unsigned long count, after;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(display, DefaultRootWindow(display), atom, 0, 1, False, AnyPropertyType, &type, &format,
                           &count, &after, &data) != Success ||
        !data || count == 0) {
        if (data) XFree(data);
        return std::nullopt;
    }
    unsigned long value = *reinterpret_cast<unsigned long*>(data);
    XFree(data);
    return value;
}

} // namespace

const std::string& XServer::whyUnavailable() { return unavailableReason(); }

XServer* XServer::shared() {
    static std::unique_ptr<XServer> server = []() -> std::unique_ptr<XServer> {
        try {
            return std::unique_ptr<XServer>(new XServer());
        } catch (const std::exception& error) {
            unavailableReason() = error.what();
            return nullptr;
        }
    }();
    return server.get();
}

XServer::XServer() {
    static TempDir logs;
    int fds[2];
    if (::pipe(fds) != 0) throw std::runtime_error("pipe failed");
    xvfb_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0", "1280x800x24",
                                 "-nolisten", "tcp", "-noreset"},
        std::vector<std::string>{}, logs / "xvfb.log", fds[1]);
    ::close(fds[1]);
    std::optional<std::string> number = readLine(fds[0], 15s);
    ::close(fds[0]);
    if (!number || number->empty())
        throw std::runtime_error("Xvfb did not start (is it installed?): " + readFile(logs / "xvfb.log"));
    display_ = ":" + *number;
    client_ = XOpenDisplay(display_.c_str());
    if (!client_) throw std::runtime_error("cannot connect to Xvfb on " + display_);

    // A real window manager: it is what publishes _NET_ACTIVE_WINDOW. Its
    // failing is a fault of the machine's set-up, not a reason to skip.
    windowManager_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{"openbox", "--sm-disable"},
        std::vector<std::string>{"DISPLAY=" + display_, "XDG_CONFIG_HOME=" + (logs / "config").string()},
        logs / "openbox.log");
    bool ready = eventually([this] { return rootWindowProperty(client_, "_NET_SUPPORTING_WM_CHECK").has_value(); });
    if (!ready) {
        std::fprintf(stderr, "openbox did not start: %s\n", readFile(logs / "openbox.log").c_str());
        std::abort();
    }
}

void XServer::announceActive(unsigned long window) {
    long value = long(window);
    XChangeProperty(client_, DefaultRootWindow(client_), XInternAtom(client_, "_NET_ACTIVE_WINDOW", False), XA_WINDOW,
                    32, PropModeReplace, reinterpret_cast<unsigned char*>(&value), 1);
    XSync(client_, False);
}

XServer::~XServer() {
    if (client_) XCloseDisplay(client_);
    windowManager_.reset();
    xvfb_.reset();
}

// ---- Windows ----------------------------------------------------------------------------

TestWindow::TestWindow(XServer& server, const Properties& properties) : server_(server) {
    Display* display = server.client();
    window_ = XCreateSimpleWindow(display, DefaultRootWindow(display), 10, 10, 300, 200, 0, 0, 0xffffff);
    if (!properties.instance.empty() || !properties.className.empty()) {
        XClassHint hint{const_cast<char*>(properties.instance.c_str()),
                        const_cast<char*>(properties.className.c_str())};
        XSetClassHint(display, window_, &hint);
    }
    if (properties.latin1Title)
        XChangeProperty(display, window_, XA_WM_NAME, XA_STRING, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(properties.latin1Title->data()),
                        int(properties.latin1Title->size()));
    if (properties.utf8Title) setTitle(*properties.utf8Title);
    if (properties.pid) {
        long pid = *properties.pid;
        XChangeProperty(display, window_, XInternAtom(display, "_NET_WM_PID", False), XA_CARDINAL, 32,
                        PropModeReplace, reinterpret_cast<unsigned char*>(&pid), 1);
    }
    if (properties.gtkApplicationID)
        XChangeProperty(display, window_, XInternAtom(display, "_GTK_APPLICATION_ID", False),
                        XInternAtom(display, "UTF8_STRING", False), 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(properties.gtkApplicationID->data()),
                        int(properties.gtkApplicationID->size()));
    if (properties.dock) {
        Atom dock = XInternAtom(display, "_NET_WM_WINDOW_TYPE_DOCK", False);
        XChangeProperty(display, window_, XInternAtom(display, "_NET_WM_WINDOW_TYPE", False), XA_ATOM, 32,
                        PropModeReplace, reinterpret_cast<unsigned char*>(&dock), 1);
    }
    // Managed once the window manager has set WM_STATE on it. A window mapped
    // while openbox is still starting can be missed: map it again.
    Atom wmState = XInternAtom(display, "WM_STATE", False);
    auto managed = [&] {
        Atom type = None;
        int format;
        unsigned long count, after;
        unsigned char* data = nullptr;
        XGetWindowProperty(display, window_, wmState, 0, 2, False, AnyPropertyType, &type, &format, &count, &after,
                           &data);
        if (data) XFree(data);
        return type != None;
    };
    for (int attempt = 0; attempt < 10; ++attempt) {
        XUnmapWindow(display, window_);
        XMapWindow(display, window_);
        XSync(display, False);
        if (eventually(managed, {}, std::chrono::milliseconds(500))) return;
    }
    throw std::runtime_error("the window manager does not manage new windows");
}

TestWindow::~TestWindow() { destroy(); }

void TestWindow::destroy() {
    if (!window_) return;
    XDestroyWindow(server_.client(), window_);
    XSync(server_.client(), False);
    window_ = 0;
}

void TestWindow::activate() {
    runProgram({"xdotool", "windowactivate", std::to_string(window_)}, {"DISPLAY=" + server_.display()});
    bool active = eventually([&] {
        XSync(server_.client(), False);
        return rootWindowProperty(server_.client(), "_NET_ACTIVE_WINDOW") == window_;
    });
    if (!active) throw std::runtime_error("the window manager did not activate window " + std::to_string(window_));
}

void TestWindow::setTitle(const std::string& utf8Title) {
    Display* display = server_.client();
    XChangeProperty(display, window_, XInternAtom(display, "_NET_WM_NAME", False),
                    XInternAtom(display, "UTF8_STRING", False), 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(utf8Title.data()), int(utf8Title.size()));
    XSync(display, False);
}

// ---- D-Bus ------------------------------------------------------------------------------------

PrivateBus::PrivateBus() {
    static int counter = 0;
    folder_ = fs::temp_directory_path() / ("ombrelo-bus-" + std::to_string(::getpid()) + "-" + std::to_string(++counter));
    fs::create_directories(folder_);
    // No service activation: a call to a missing service fails at once, as it
    // does on a desktop without that service.
    writeFile(folder_ / "bus.conf",
              "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
              " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
              "<busconfig><type>session</type><listen>unix:path=" +
                  (folder_ / "socket").string() +
                  "</listen><auth>EXTERNAL</auth>"
                  "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                  "<allow eavesdrop=\"true\"/><allow own=\"*\"/><allow user=\"*\"/></policy></busconfig>\n");
    int fds[2];
    if (::pipe(fds) != 0) throw std::runtime_error("pipe failed");
    daemon_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{"dbus-daemon", "--config-file=" + (folder_ / "bus.conf").string(), "--nofork",
                                 "--nopidfile", "--print-address=" + std::to_string(fds[1])},
        std::vector<std::string>{}, folder_ / "daemon.log", fds[1]);
    ::close(fds[1]);
    std::optional<std::string> address = readLine(fds[0], 10s);
    ::close(fds[0]);
    if (!address || address->empty())
        throw std::runtime_error("dbus-daemon did not start: " + readFile(folder_ / "daemon.log"));
    address_ = *address;
}

PrivateBus::~PrivateBus() {
    daemon_.reset();
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

ServiceThread::ServiceThread(const std::string& address) {
    if (sd_bus_new(&bus_) < 0 || sd_bus_set_address(bus_, address.c_str()) < 0 || sd_bus_set_bus_client(bus_, 1) < 0 ||
        sd_bus_start(bus_) < 0)
        throw std::runtime_error("stand-in service cannot connect to " + address);
    thread_ = std::thread([this] { loop(); });
}

ServiceThread::~ServiceThread() {
    stopping_ = true;
    thread_.join();
    sd_bus_flush_close_unref(bus_);
}

void ServiceThread::loop() {
    while (!stopping_) {
        for (;;) {
            Work work;
            {
                std::lock_guard lock(mutex_);
                if (work_.empty()) break;
                work = std::move(work_.front());
                work_.pop_front();
            }
            std::exception_ptr failure;
            try {
                work.task(bus_);
                // What the work sent is on its way before the caller looks.
                sd_bus_flush(bus_);
            } catch (...) {
                failure = std::current_exception();
            }
            std::lock_guard lock(mutex_);
            completed_ = work.ticket;
            failure_ = failure;
            done_.notify_all();
        }
        while (sd_bus_process(bus_, nullptr) > 0) {
        }
        sd_bus_wait(bus_, 5000);
    }
}

void ServiceThread::run(const std::function<void(sd_bus*)>& task) {
    std::unique_lock lock(mutex_);
    std::uint64_t ticket = ++submitted_;
    work_.push_back({ticket, task});
    done_.wait(lock, [&] { return completed_ >= ticket; });
    if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
}

void ServiceThread::own(const std::string& name) {
    run([&](sd_bus* bus) {
        if (sd_bus_request_name(bus, name.c_str(), 0) < 0) throw std::runtime_error("cannot own " + name);
    });
}

} // namespace ombrelo::testing
