// Keys and pointer motion for the KDE end-to-end check, through KWin's fake-input protocol: as
// if from the person's own keyboard, so the compositor's shortcuts see them too.
//
//   kwin_keys STEP...
//     +NAME / -NAME   press / release a key (alt, super, ctrl, shift, tab, f2, escape, …)
//     NAME            press and release it
//     text=WORD       type the letters of WORD (a–z and spaces)
//     wait=MS         wait that long (a held key is +NAME wait=MS -NAME)
//     move            nudge the pointer (input that is no key)
#include "fake-input-client-protocol.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <linux/input-event-codes.h>
#include <map>
#include <string>
#include <thread>
#include <wayland-client.h>

namespace {

org_kde_kwin_fake_input* fake = nullptr;

void offered(void*, wl_registry* registry, uint32_t id, const char* interface, uint32_t) {
    if (std::strcmp(interface, org_kde_kwin_fake_input_interface.name) == 0)
        fake = static_cast<org_kde_kwin_fake_input*>(
            wl_registry_bind(registry, id, &org_kde_kwin_fake_input_interface, 4));
}
const wl_registry_listener listener = {offered, [](void*, wl_registry*, uint32_t) {}};

const std::map<std::string, uint32_t> named = {
    {"alt", KEY_LEFTALT},   {"super", KEY_LEFTMETA},
    {"ctrl", KEY_LEFTCTRL}, {"shift", KEY_LEFTSHIFT},
    {"tab", KEY_TAB},       {"f2", KEY_F2},
    {"f4", KEY_F4},         {"escape", KEY_ESC},
    {"return", KEY_ENTER},  {"space", KEY_SPACE},
    {"l", KEY_L},           {"w", KEY_W},
};

int letter(char c) {
    static const char* const rows[] = {"qwertyuiop", "asdfghjkl", "zxcvbnm"};
    static const int starts[] = {KEY_Q, KEY_A, KEY_Z};
    for (int r = 0; r < 3; ++r)
        if (const char* at = std::strchr(rows[r], c))
            return starts[r] + int(at - rows[r]);
    return c == ' ' ? KEY_SPACE : -1;
}

void key(wl_display* display, uint32_t code, bool down) {
    org_kde_kwin_fake_input_keyboard_key(fake, code, down ? 1 : 0);
    wl_display_roundtrip(display);
    std::this_thread::sleep_for(std::chrono::milliseconds(15));
}

} // namespace

int main(int argc, char** argv) {
    wl_display* display = wl_display_connect(nullptr);
    if (!display) {
        std::fprintf(stderr, "kwin_keys: no Wayland display\n");
        return 1;
    }
    wl_registry* registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &listener, nullptr);
    wl_display_roundtrip(display);
    if (!fake) {
        std::fprintf(stderr, "kwin_keys: the compositor offers no fake input\n");
        return 1;
    }
    org_kde_kwin_fake_input_authenticate(fake, "tovin tests", "end-to-end checks");
    for (int i = 1; i < argc; ++i) {
        const std::string step = argv[i];
        if (step.rfind("text=", 0) == 0) {
            for (char c : step.substr(5))
                if (const int code = letter(c); code >= 0) {
                    key(display, uint32_t(code), true);
                    key(display, uint32_t(code), false);
                }
        } else if (step.rfind("wait=", 0) == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(step.substr(5))));
        } else if (step == "move") {
            org_kde_kwin_fake_input_pointer_motion(fake, wl_fixed_from_int(1),
                                                   wl_fixed_from_int(1));
            wl_display_roundtrip(display);
        } else {
            const bool press = step[0] == '+', release = step[0] == '-';
            const std::string name = press || release ? step.substr(1) : step;
            const auto found = named.find(name);
            if (found == named.end()) {
                std::fprintf(stderr, "kwin_keys: unknown step %s\n", step.c_str());
                return 2;
            }
            if (!release)
                key(display, found->second, true);
            if (!press)
                key(display, found->second, false);
        }
    }
    wl_display_disconnect(display);
    return 0;
}
