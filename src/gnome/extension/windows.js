// The window in front, served on the session bus for the Ombrelo tracker:
// under Wayland, GNOME Shell offers no other way to know it. Nothing leaves
// the machine; only processes of this session can ask.
const BUS_NAME = 'fr.ombrelo.Shell';
const OBJECT_PATH = '/fr/ombrelo/Shell';
const WINDOW_ARGS = `
      <arg type="s" name="window"/>
      <arg type="s" name="app"/>
      <arg type="s" name="windowClass"/>
      <arg type="s" name="title"/>
      <arg type="u" name="pid"/>`;
const INTERFACE = `<node>
  <interface name="fr.ombrelo.Shell.Windows">
    <method name="Front">${WINDOW_ARGS.replace(/name=/g, 'direction="out" name=')}
    </method>
    <signal name="FrontChanged">${WINDOW_ARGS}
    </signal>
  </interface>
</node>`;

class FrontWindowService {
    constructor(Gio, GLib, Shell) {
        this._Gio = Gio;
        this._GLib = GLib;
        this._apps = Shell.WindowTracker.get_default();
    }

    enable() {
        this._exported = this._Gio.DBusExportedObject.wrapJSObject(INTERFACE, this);
        this._exported.export(this._Gio.DBus.session, OBJECT_PATH);
        this._focusSignal = global.display.connect('notify::focus-window', () => this._follow());
        this._follow();
        // Owned last: the tracker asks as soon as the name appears.
        this._name = this._Gio.bus_own_name_on_connection(this._Gio.DBus.session, BUS_NAME,
            this._Gio.BusNameOwnerFlags.NONE, null, null);
    }

    disable() {
        this._Gio.bus_unown_name(this._name);
        global.display.disconnect(this._focusSignal);
        this._stopWatching();
        this._exported.unexport();
        this._exported = null;
    }

    // Called over D-Bus.
    Front() {
        return this._describe();
    }

    _describe() {
        const window = global.display.focus_window;
        if (!window)
            return ['', '', '', '', 0];
        const app = this._apps.get_window_app(window);
        // Windows of no known application get a made-up "window:N" id.
        const appID = app && !app.get_id().startsWith('window:') ? app.get_id() : '';
        return [String(window.get_id()), appID, window.get_wm_class() || '', window.get_title() || '',
            Math.max(window.get_pid(), 0)];
    }

    _follow() {
        this._stopWatching();
        this._watched = global.display.focus_window;
        if (this._watched)
            this._titleSignal = this._watched.connect('notify::title', () => this._announce());
        this._announce();
    }

    _stopWatching() {
        try {
            if (this._watched)
                this._watched.disconnect(this._titleSignal);
        } catch (e) {
            // The window is already gone, and its signals with it.
        }
        this._watched = null;
    }

    _announce() {
        this._exported.emit_signal('FrontChanged', new this._GLib.Variant('(ssssu)', this._describe()));
    }
}
