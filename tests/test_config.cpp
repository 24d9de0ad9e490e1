#include "sim/sim.h"

#include "config/config_file.h"
#include "config/setting_container.h"
#include "config/settings.h"
#include "core/log.h"

using namespace sim;
using config_test = sim::test;

TEST_F(config_test, every_setting_is_set_by_the_sample_file) {
    files["settings.xml"].content = of(str::read_file(SAMPLE_SETTINGS));
    settings.init();
    str all = str::sprintf("%d %d %d %d", vlan_id, vlan_prio, log_level, tftp_enabled);
    for (str const& each :
         {base_name, asset_id, ieee_802_1x_username, ieee_802_1x_password, use_dhcp, ip_adr,
          netmask, gateway, static_dns_server1, static_dns_server2, static_dns_server3,
          static_dns_server4, static_dns_domain, ntp_server, http_username1, http_password1}) {
        EXPECT_LE(each.capacity(), 48) << "keeps the whole file in memory";
        all += str(" ") + each;
    }
    EXPECT_EQ(all, "100 5 7 0 lobby A-0042 lobby-1 salt & pepper false 192.0.2.20 255.255.255.0 "
                   "192.0.2.1 192.0.2.53 192.0.2.54 2001:db8::53 2001:db8::54 voice.example "
                   "time.voice.example provisioning correct horse");
    EXPECT_EQ(settings.registered.count, 20);
    for (auto* each = settings.registered.first(); each; each = settings.registered.next(each)) {
        EXPECT_EQ(each->value.confidential, each->key.find("password") >= 0) << of(each->key);
    }
}

TEST_F(config_test, a_file_assigns_what_it_can_and_no_more) {
    EXPECT_EQ(vlan_id + vlan_prio + log_level + tftp_enabled, 9);
    settings.init();
    bytes const name = "<base_name>a</base_name>";
    auto const file_of = [](bytes const& text) {
        return "<?xml?><settings><phone-settings>" + text + "<x/></phone-settings></settings>";
    };
    for (auto const& [content, values] : table<bytes, char const*>{
             {"", "- 5 1 0"},
             {" " + file_of(name), "- 5 0 0"},
             {"<?xml?><s><phone-settings>" + name + "</phone-settings></s>", "- 5 0 0"},
             {file_of("<log>3</log><dhcp/></phone-settings>" + name), "- 5 0 0"},
             {file_of("</phone-settings><x/><phone-settings>" + name), "a 5 0 0"},
             {file_of("<log idx='10'>12 x</log><telnet_enabled>TRUE</telnet_enabled>"), "- 12 1 0"},
             {file_of("<base_name perm='-w-'/><telnet_enabled>On</telnet_enabled>"), " 5 1 2"},
             {file_of("<base_name perm='R'/><telnet_enabled>yes</telnet_enabled>"), " 5 1 1"},
             {file_of("<base_name perm='rW'/><telnet_enabled>1</telnet_enabled>"), " 5 0 0"}}) {
        base_name = "-";
        log_level = 5;
        tftp_enabled = false;
        files["settings.xml"].content = content;
        reload_settings();
        int const permission = settings.registered.find("base_name")->permission;
        EXPECT_EQ(str::sprintf("%s %d %d %d", base_name, log_level, tftp_enabled, permission),
                  values);
    }
    EXPECT_EQ(take_log(), lines{"3 Could not process configuration file"});
}
