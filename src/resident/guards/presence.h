#pragma once

namespace tovin::Presence {

// Whether the person is at the desk, judged from seconds since their last input.

// The setup window holds a lockout off only while the person is really using it: it has the
// keyboard, shows, and was typed or pointed in lately.
constexpr bool usingSetupWindow(bool isKey, bool isVisible, bool appActive, double idleSeconds,
                                double activeWithin = 120) {
    return isKey && isVisible && appActive && idleSeconds < activeWithin;
}

// Nobody has touched the machine for a while: a lockout would interrupt nobody.
constexpr bool nobodyHome(double idleSeconds, double threshold = 1200) {
    return idleSeconds >= threshold;
}

// At the end of an away block: idle no longer than the block (and a margin) means the person
// was there when it began and walked away for it, not away all morning.
constexpr bool wasPresent(double idleAtEnd, double heldMinutes, double margin = 300) {
    return idleAtEnd <= heldMinutes * 60.0 + margin;
}

} // namespace tovin::Presence
