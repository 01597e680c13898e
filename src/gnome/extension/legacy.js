// GNOME Shell 42 to 44.
const {Gio, GLib, Shell} = imports.gi;

@WINDOWS@

let service = null;

function init() {
}

function enable() {
    service = new FrontWindowService(Gio, GLib, Shell);
    service.enable();
}

function disable() {
    service.disable();
    service = null;
}
