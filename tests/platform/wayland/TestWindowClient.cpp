// A native Wayland window for the tests: an xdg toplevel with the app_id and
// title given, drawn once in white. Lines read from the command FIFO change
// its title ("title <text>") or close it ("close"); the compositor closing it
// ends it too. With --nudge instead, it moves KWin's pointer a pixel through
// KWin's fake input protocol, as a hand on the mouse would, and ends.
//
//   ombrelo-test-wayland-window APP_ID TITLE COMMAND_FIFO
//   ombrelo-test-wayland-window --nudge
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

#include "fake-input-client-protocol.h"
#include "xdg-shell-client-protocol.h"

namespace {

struct Window {
    wl_registry* registry = nullptr;
    org_kde_kwin_fake_input* fakeInput = nullptr;
    wl_compositor* compositor = nullptr;
    wl_shm* shm = nullptr;
    xdg_wm_base* shell = nullptr;
    wl_surface* surface = nullptr;
    xdg_toplevel* toplevel = nullptr;
    wl_buffer* buffer = nullptr;
    bool closed = false;
};

constexpr int side = 64;

wl_buffer* whiteBuffer(wl_shm* shm) {
    int fd = memfd_create("ombrelo-test-window", MFD_CLOEXEC);
    std::size_t size = side * side * 4;
    if (fd < 0 || ftruncate(fd, off_t(size)) != 0) return nullptr;
    void* pixels = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (pixels == MAP_FAILED) return nullptr;
    std::memset(pixels, 0xff, size);
    munmap(pixels, size);
    wl_shm_pool* pool = wl_shm_create_pool(shm, fd, int(size));
    wl_buffer* buffer = wl_shm_pool_create_buffer(pool, 0, side, side, side * 4, WL_SHM_FORMAT_ARGB8888);
    wl_shm_pool_destroy(pool);
    close(fd);
    return buffer;
}

const wl_registry_listener registryListener{
    .global =
        [](void* data, wl_registry* registry, uint32_t name, const char* interface, uint32_t) {
            auto* window = static_cast<Window*>(data);
            if (!std::strcmp(interface, wl_compositor_interface.name))
                window->compositor = static_cast<wl_compositor*>(wl_registry_bind(registry, name, &wl_compositor_interface, 4));
            else if (!std::strcmp(interface, wl_shm_interface.name))
                window->shm = static_cast<wl_shm*>(wl_registry_bind(registry, name, &wl_shm_interface, 1));
            else if (!std::strcmp(interface, xdg_wm_base_interface.name))
                window->shell = static_cast<xdg_wm_base*>(wl_registry_bind(registry, name, &xdg_wm_base_interface, 1));
            else if (!std::strcmp(interface, org_kde_kwin_fake_input_interface.name))
                window->fakeInput = static_cast<org_kde_kwin_fake_input*>(
                    wl_registry_bind(registry, name, &org_kde_kwin_fake_input_interface, 1));
        },
    .global_remove = [](void*, wl_registry*, uint32_t) {}};

const xdg_wm_base_listener shellListener{
    .ping = [](void*, xdg_wm_base* shell, uint32_t serial) { xdg_wm_base_pong(shell, serial); }};

const xdg_surface_listener surfaceListener{
    .configure =
        [](void* data, xdg_surface* surface, uint32_t serial) {
            auto* window = static_cast<Window*>(data);
            xdg_surface_ack_configure(surface, serial);
            wl_surface_attach(window->surface, window->buffer, 0, 0);
            wl_surface_damage(window->surface, 0, 0, side, side);
            wl_surface_commit(window->surface);
        }};

const xdg_toplevel_listener toplevelListener{
    .configure = [](void*, xdg_toplevel*, int32_t, int32_t, wl_array*) {},
    .close = [](void* data, xdg_toplevel*) { static_cast<Window*>(data)->closed = true; }};

// Runs one command line; false when the window is to close.
bool obey(Window& window, const std::string& line) {
    if (line.rfind("title ", 0) == 0) {
        xdg_toplevel_set_title(window.toplevel, line.substr(6).c_str());
        wl_surface_commit(window.surface);
        return true;
    }
    return line != "close";
}

// The globals bound, let go before the connection ends.
void release(wl_display* display, Window& window) {
    if (window.buffer) wl_buffer_destroy(window.buffer);
    if (window.fakeInput) org_kde_kwin_fake_input_destroy(window.fakeInput);
    if (window.shell) xdg_wm_base_destroy(window.shell);
    if (window.shm) wl_shm_destroy(window.shm);
    if (window.compositor) wl_compositor_destroy(window.compositor);
    wl_registry_destroy(window.registry);
    wl_display_roundtrip(display);
    wl_display_disconnect(display);
}

int nudge(wl_display* display, Window& window) {
    if (!window.fakeInput) {
        std::fprintf(stderr, "the compositor offers no org_kde_kwin_fake_input\n");
        return 1;
    }
    org_kde_kwin_fake_input_authenticate(window.fakeInput, "Ombrelo tests", "input for idle time");
    org_kde_kwin_fake_input_pointer_motion(window.fakeInput, wl_fixed_from_int(1), 0);
    release(display, window);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::string(argv[1]) == "--nudge") {
        wl_display* display = wl_display_connect(nullptr);
        if (!display) return 1;
        Window window;
        window.registry = wl_display_get_registry(display);
        wl_registry_add_listener(window.registry, &registryListener, &window);
        wl_display_roundtrip(display);
        return nudge(display, window);
    }
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s APP_ID TITLE COMMAND_FIFO\n", argv[0]);
        return 2;
    }
    // Read and write, so that no writer is never an end of input.
    int commands = open(argv[3], O_RDWR | O_NONBLOCK | O_CLOEXEC);
    wl_display* display = wl_display_connect(nullptr);
    if (commands < 0 || !display) {
        std::fprintf(stderr, "cannot open %s or connect to Wayland: %s\n", argv[3], std::strerror(errno));
        return 1;
    }
    Window window;
    window.registry = wl_display_get_registry(display);
    wl_registry_add_listener(window.registry, &registryListener, &window);
    wl_display_roundtrip(display);
    if (!window.compositor || !window.shm || !window.shell) {
        std::fprintf(stderr, "the compositor lacks wl_compositor, wl_shm or xdg_wm_base\n");
        return 1;
    }
    xdg_wm_base_add_listener(window.shell, &shellListener, nullptr);
    window.buffer = whiteBuffer(window.shm);
    window.surface = wl_compositor_create_surface(window.compositor);
    xdg_surface* surface = xdg_wm_base_get_xdg_surface(window.shell, window.surface);
    xdg_surface_add_listener(surface, &surfaceListener, &window);
    window.toplevel = xdg_surface_get_toplevel(surface);
    xdg_toplevel_add_listener(window.toplevel, &toplevelListener, &window);
    xdg_toplevel_set_app_id(window.toplevel, argv[1]);
    xdg_toplevel_set_title(window.toplevel, argv[2]);
    wl_surface_commit(window.surface);

    std::string pending;
    while (!window.closed) {
        wl_display_flush(display);
        pollfd fds[2] = {{wl_display_get_fd(display), POLLIN, 0}, {commands, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 && errno != EINTR) break;
        if (fds[0].revents & POLLIN && wl_display_dispatch(display) < 0) break;
        if (fds[0].revents & (POLLHUP | POLLERR)) break;
        if (fds[1].revents & POLLIN) {
            char chunk[512];
            ssize_t got = read(commands, chunk, sizeof chunk);
            if (got > 0) pending.append(chunk, std::size_t(got));
            for (auto end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
                std::string line = pending.substr(0, end);
                pending.erase(0, end + 1);
                if (!obey(window, line)) window.closed = true;
            }
        }
    }
    xdg_toplevel_destroy(window.toplevel);
    xdg_surface_destroy(surface);
    wl_surface_destroy(window.surface);
    release(display, window);
    return 0;
}
