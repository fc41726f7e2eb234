/* Tovin's shield under GNOME Shell.
 *
 * No Wayland protocol lets a program stay above the others or keep the keyboard, and GNOME asks
 * the person before it passes its shortcuts to a window. So while one of Tovin's shield windows
 * is up, this keeps them above every other window with the keyboard on the main one, refuses
 * the Overview, and lets no keybinding of GNOME's act (window switching, the run dialog, the
 * shortcut that takes keys back from a window) and no notification banner shows: every key goes
 * to the shield, whose own ways out are the only ones. It knows Tovin's windows by app id and
 * title; at any other time it does nothing. The countdown notice is kept above other windows too.
 */
const { GLib } = imports.gi;
const Main = imports.ui.main;

const APP_ID = 'dev.tovin.Tovin';
const SHIELD_TITLE = 'Tovin shield'; // the main window is exactly this; the others start with it
const NOTICE_TITLE = 'Tovin countdown';

function ours(window) {
    return window !== null && window.get_wm_class() === APP_ID;
}

function isShield(window) {
    return ours(window) && (window.get_title() || '').startsWith(SHIELD_TITLE);
}

function keptAbove(window) {
    return isShield(window) || (ours(window) && window.get_title() === NOTICE_TITLE);
}

class TovinShield {
    enable() {
        this._held = false;
        this._watched = new Map();
        this._displaySignals = [
            global.display.connect('window-created', (display, window) => this._watch(window)),
            global.display.connect('notify::focus-window', () => this._reclaimSoon()),
        ];
        // GNOME asks every handler whether to let a keybinding act: none does while held.
        this._filterSignal = global.window_manager.connect('filter-keybinding', () => this._held);
        // The Overview's ways in (the Super key's and the hot corner's among them) are these;
        // a touchpad's swipe is not, so an Overview that starts showing anyway is shut.
        this._overview = {};
        this._overviewOwn = [];
        for (const name of ['show', 'toggle', 'showApps']) {
            const original = Main.overview[name];
            this._overview[name] = original;
            if (Object.prototype.hasOwnProperty.call(Main.overview, name))
                this._overviewOwn.push(name);
            Main.overview[name] = (...args) =>
                (this._held ? undefined : original.apply(Main.overview, args));
        }
        this._showingSignal = Main.overview.connect('shown', () => {
            if (this._held)
                Main.overview.hide();
        });
        for (const actor of global.get_window_actors())
            this._watch(actor.meta_window);
        this._update();
    }

    disable() {
        for (const id of this._displaySignals)
            global.display.disconnect(id);
        global.window_manager.disconnect(this._filterSignal);
        for (const [window, ids] of this._watched)
            ids.forEach(id => window.disconnect(id));
        this._watched.clear();
        Main.overview.disconnect(this._showingSignal);
        for (const name of Object.keys(this._overview)) {
            if (this._overviewOwn.includes(name))
                Main.overview[name] = this._overview[name];
            else
                delete Main.overview[name];
        }
        if (this._held)
            Main.messageTray.bannerBlocked = false;
        if (this._reclaimSource)
            GLib.source_remove(this._reclaimSource);
        this._reclaimSource = 0;
        this._held = false;
    }

    _watch(window) {
        if (this._watched.has(window))
            return;
        // The app id and title may come after the window: a client names it when it likes.
        this._watched.set(window, [
            window.connect('notify::title', () => this._consider(window)),
            window.connect('notify::wm-class', () => this._consider(window)),
            window.connect('unmanaged', () => {
                this._watched.delete(window);
                this._update();
            }),
        ]);
        this._consider(window);
    }

    _consider(window) {
        if (keptAbove(window) && !window.is_above())
            window.make_above();
        this._update();
    }

    _shields() {
        return global.display.list_all_windows().filter(isShield);
    }

    _update() {
        const held = this._shields().length > 0;
        if (held !== this._held) {
            if (held && Main.overview.visible)
                Main.overview.hide();
            // No banner over the shield: a click on one ("… is ready") activates its window.
            Main.messageTray.bannerBlocked = held;
        }
        this._held = held;
        this._reclaimSoon();
    }

    // Another window took the focus (a new one, another shield window, or one chosen by some
    // means this missed): the main shield takes it back, once the shell has finished handing
    // it over.
    _reclaimSoon() {
        if (!this._held || this._reclaimSource)
            return;
        this._reclaimSource = GLib.idle_add(GLib.PRIORITY_DEFAULT, () => {
            this._reclaimSource = 0;
            this._reclaim();
            return GLib.SOURCE_REMOVE;
        });
    }

    _reclaim() {
        const shields = this._shields();
        const main = shields.find(window => window.get_title() === SHIELD_TITLE) || shields[0];
        if (this._held && main && global.display.focus_window !== main)
            main.activate(global.display.get_current_time_roundtrip());
    }
}

function init() {
    return new TovinShield();
}
