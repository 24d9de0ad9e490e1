#include "tools/settings_check.h"

#include "config/config_file.h"
#include "config/setting_container.h"
#include "config/settings.h"
#include "lib/str_format.h"
#include "lib/utils.h"
#include "lib/xml_tree.h"
#include "lldp/lldp.h"
#include "tools/printable.h"

#include <initializer_list>

namespace {

class checker {
public:
    explicit checker(bool shows) : shows_passwords(shows) {}

    settings_report run(str const& content) {
        settings.register_all();
        process_config_file(content);
        look_at_file(content);
        look_at_address();
        look_at_name_servers();
        look_at_vlan();
        look_at_time_server();
        if (tftp_enabled) {
            warn("telnet_enabled is true: everyone may read and replace files by TFTP");
        }
        settings_report report;
        report.warnings = warnings;
        report.text = warning_lines + setting_lines();
        return report;
    }

private:
    void warn(str const& text) {
        ++warnings;
        warning_lines += str::sprintf("warning: %s\n", printable(text));
    }

    // The file, element by element, as the daemon walks it.
    void look_at_file(str const& content) {
        if (content.empty()) {
            warn("the file is empty: the daemon would open TFTP access");
        } else if (content.leftstr(5) != "<?xml") {
            bool const has_mark = content.leftstr(3) == "\xEF\xBB\xBF";
            warn(has_mark ? "ignored: a byte order mark stands before \"<?xml\""
                          : "ignored: it does not begin with \"<?xml\"");
        } else {
            is_whole =
                content.find("</settings>") >= 0 || content.rstrip(str::lws).rightstr(2) == "/>";
            look_at_root(xml_tree(content, true), content.find("<!DOCTYPE") >= 0);
        }
    }

    void look_at_root(xml_tree const& root, bool has_document_type) {
        if (root.name != "settings" && has_document_type) {
            warn("ignored: with a document type declaration the file means nothing");
            return;
        }
        if (root.name != "settings") {
            warn(str::sprintf("ignored: the root element is \"%s\", not \"settings\"", root.name));
            return;
        }
        if (!is_whole) {
            warn("settings is unfinished: without </settings> the last setting is empty");
        }
        bool has_section = false;
        for (str rest = root.get_body(); !rest.strip(str::lws).empty();) {
            str const segment = xml_tree::get_segment(rest);
            xml_tree const section(segment, false);
            if (section.name == "phone-settings") {
                has_section = true;
                look_at_end(section, segment);
                look_at_section(section);
            } else if (!section.name.empty()) {
                bool const is_known = settings.registered.contains(section.name);
                warn(str::sprintf(is_known ? "%s is ignored: it stands outside \"phone-settings\""
                                           : "section \"%s\" is ignored",
                                  section.name));
            }
        }
        if (!has_section) {
            warn("there is no section \"phone-settings\"");
        }
    }

    void look_at_section(xml_tree const& section) {
        for (str rest = section.get_body(); !rest.strip(str::lws).empty();) {
            str const segment = xml_tree::get_segment(rest);
            xml_tree const element(segment, false);
            if (!element.name.empty()) {
                look_at_end(element, segment);
                look_at_setting(element);
            } else if (segment.strip(str::lws)[0] != '<') {
                warn(str::sprintf("text between the settings is ignored: %s",
                                  segment.strip(str::lws).leftstr(40)));
            }
        }
    }

    // The daemon does not compare the end tag's name, and an element without one loses its value.
    void look_at_end(xml_tree const& element, str const& segment) {
        str const trimmed = segment.rstrip(str::lws);
        bool const is_closed =
            trimmed.rightstr(2) == "/>" ||
            trimmed.rightstr(element.name.length() + 3) == str("</") + element.name + ">";
        if (is_whole && !is_closed) {
            warn(str::sprintf("%s is unfinished: it does not end with </%s>", element.name,
                              element.name));
        }
    }

    void look_at_setting(xml_tree const& element) {
        str const index = element.get_attribute("idx");
        str const key = element.name + index;
        setting_container::setting const* const setting = settings.registered.find(key);
        if (!setting) {
            if (element.name == "log") {
                warn(index.empty() ? str("log is ignored without idx=\"10\"")
                                   : str::sprintf("log idx=\"%s\" is ignored: nobody reads it, "
                                                  "10 is the log level",
                                                  index));
            } else {
                warn(str::sprintf("%s is ignored: there is no such setting", key));
            }
            return;
        }
        if (from_file.contains(key)) {
            warn(str::sprintf("%s stands twice: the last one counts", key));
        }
        from_file.insert(key);
        look_at_value(key, *setting, element.get_content());
    }

    void look_at_value(str const& key, setting_container::setting const& setting,
                       str const& value) {
        str const trimmed = value.strip(str::lws);
        switch (setting.type) {
        case setting_container::type_integer:
            if (!value.is_number()) {
                warn(str::sprintf("%s is no number: \"%s\" counts as %d", key, value,
                                  value.value()));
            }
            break;
        case setting_container::type_boolean:
            if (!value.icmp("true") && !value.icmp("on") && !value.icmp("yes") &&
                !value.icmp("false") && !value.icmp("off") && !value.icmp("no")) {
                warn(str::sprintf("%s is \"%s\", which counts as false", key, value));
            }
            break;
        case setting_container::type_string:
            if (trimmed != value) {
                warn(str::sprintf("%s has blanks around its value, which count", key));
            }
            break;
        }
    }

    void look_at_address() {
        bool const wants_static = use_dhcp == str::f;
        if (wants_static && !lldp::has_static_address()) {
            warn("dhcp is false, but ip_adr or netmask is missing or not usable: DHCP is used");
        }
        if (lldp::has_static_address() && utils::compact_ip(gateway) == c_0_0_0_0) {
            warn(gateway.empty() ? str("gateway is missing: there will be no default route")
                                 : str::sprintf("gateway \"%s\" is no address", gateway));
        }
        if (!wants_static && from_file.contains("dhcp") && !use_dhcp.icmp("true")) {
            warn(str::sprintf("dhcp is \"%s\", not \"false\": DHCP is used", use_dhcp));
        }
        if (!wants_static && !ip_adr.empty()) {
            warn("ip_adr is not used: dhcp is not \"false\"");
        }
    }

    void look_at_name_servers() {
        for (str const* each :
             {&static_dns_server1, &static_dns_server2, &static_dns_server3, &static_dns_server4}) {
            if (!each->empty() && utils::need_dns(utils::get_via_adr(*each))) {
                warn(str::sprintf("the DNS server \"%s\" is no address: it is never asked", *each));
            }
        }
    }

    void look_at_vlan() {
        if (!from_file.contains("vlan_id")) {
            return;
        }
        if (vlan_id != 0 && !lldp_packet::is_valid_vlan(vlan_id, vlan_prio)) {
            warn(str::sprintf("vlan_id %d with vlan_prio %d is not used: 1 to 4095 and 0 to 7 are",
                              vlan_id, vlan_prio));
        }
    }

    void look_at_time_server() {
        str const address = utils::get_via_adr(ntp_server);
        str const port = utils::get_via_port(ntp_server);
        if (!ntp_server.empty() && address.empty()) {
            warn("ntp_server names no server");
        } else if (!address.empty() && utils::need_dns(address) && !can_be_resolved(address)) {
            warn(str::sprintf("ntp_server \"%s\" cannot be resolved: names are of small letters, "
                              "digits, '-' and '.', IPv6 addresses stand in brackets",
                              ntp_server));
        }
        if (!port.empty() && (!port.is_number() || port.value() < 0 || port.value() > 65535)) {
            warn(str::sprintf("the port of ntp_server is no port: %s", port));
        }
    }

    // Answers are kept under names in small letters, without a dot at the end.
    static bool can_be_resolved(str const& name) {
        bool has_letter = false;
        for (int i = 0; i < name.length(); ++i) {
            unsigned char const c = name[i];
            has_letter |= c >= 'a' && c <= 'z';
            bool const is_dot = c == '.' && i > 0 && i + 1 < name.length() && name[i + 1] != '.';
            if (!(c >= 'a' && c <= 'z') && !(c >= '0' && c <= '9') && c != '-' && !is_dot) {
                return false;
            }
        }
        return has_letter && name.length() <= 253;
    }

    str setting_lines() const {
        str lines;
        for (auto* each = settings.registered.first(); each;
             each = settings.registered.next(each)) {
            lines += str::sprintf("%s %S  %s\n", utils::padding(each->key, 20, ' '),
                                  from_file.contains(each->key) ? "file   " : "default",
                                  shown_value(each->value));
        }
        return lines;
    }

    str shown_value(setting_container::setting const& setting) const {
        switch (setting.type) {
        case setting_container::type_integer:
            return str(*static_cast<int const*>(setting.variable), 0);
        case setting_container::type_boolean:
            return *static_cast<bool const*>(setting.variable) ? str::t : str::f;
        case setting_container::type_string:
            break;
        }
        str const& value = *static_cast<str const*>(setting.variable);
        if (setting.confidential && !shows_passwords && !value.empty()) {
            return "(not shown)";
        }
        return value.empty() ? str("-") : printable(value);
    }

    bool shows_passwords;
    bool is_whole = false;  // An end tag that is missing shifts all others.
    sset<str> from_file;
    str warning_lines;
    int warnings = 0;
};

}  // namespace

settings_report check_settings(str const& content, bool shows_passwords) {
    return checker(shows_passwords).run(content);
}
