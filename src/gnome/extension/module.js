// GNOME Shell 45 and later.
import Gio from 'gi://Gio';
import GLib from 'gi://GLib';
import Shell from 'gi://Shell';
import {Extension} from 'resource:///org/gnome/shell/extensions/extension.js';

@WINDOWS@

export default class OmbreloExtension extends Extension {
    enable() {
        this._service = new FrontWindowService(Gio, GLib, Shell);
        this._service.enable();
    }

    disable() {
        this._service.disable();
        this._service = null;
    }
}
