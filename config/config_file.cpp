#include "config/config_file.h"

#include "config/setting_container.h"
#include "config/settings.h"
#include "core/log.h"
#include "lib/descriptors.h"
#include "lib/xml_tree.h"

namespace {

// Nobody who fills the table of descriptors may make the file look unreadable.
str read_settings() {
    descriptors::spare_lent const lent;
    return str::read_file("settings.xml");
}

}  // namespace

void reload_settings() {
    str const content = read_settings();
    if (content.empty()) {
        tftp_enabled = true;
        return;
    }
    process_config_file(content);
}

namespace {

void process_phone_settings(xml_tree const& section) {
    str rest = section.get_body();
    while (!rest.empty()) {
        xml_tree const element(xml_tree::get_segment(rest), false);
        settings.set_provision(element.name, element.get_content(), element.get_attribute("perm"),
                               element.get_attribute("idx"));
    }
}

}  // namespace

void process_config_file(str const& content) {
    if (!(content.leftstr(5) == "<?xml")) {
        log_text(3, "Could not process configuration file");
        return;
    }
    xml_tree const root(content, true);
    if (root.name != "settings") {
        return;
    }
    str rest = root.get_body();
    while (!rest.empty()) {
        xml_tree const section(xml_tree::get_segment(rest), false);
        if (section.name == "phone-settings") {
            process_phone_settings(section);
        }
    }
}
