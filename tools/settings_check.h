// What the daemon would make of a settings file, found out by the daemon's own code.
#pragma once

#include "lib/str.h"

struct settings_report {
    str text;  // for people: the warnings, then every setting
    int warnings = 0;
};

// Applies the content to the daemon's settings, which must have their defaults, and reports.
// Passwords are only shown when asked for.
settings_report check_settings(str const& content, bool shows_passwords);
