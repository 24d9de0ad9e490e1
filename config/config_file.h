// The configuration file, "settings.xml" in the working directory:
//   <?xml version="1.0"?>
//   <settings><phone-settings><log idx="10" perm="RW">5</log></phone-settings></settings>
// Reading only assigns: what a file does not mention keeps its value.
#pragma once

#include "lib/str.h"

// Reads and applies the file. When it is missing, unreadable or empty, `tftp_enabled` becomes
// true: a device without configuration accepts provisioning.
void reload_settings();

// Applies one file's content. Without "<?xml" at its start it is refused with a level 3 message;
// with another root element than "settings" it is ignored.
void process_config_file(str const& content);
