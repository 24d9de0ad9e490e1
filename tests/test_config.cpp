#include "sim/sim.h"

#include "config/config_file.h"
#include "config/setting_container.h"
#include "config/settings.h"
#include "core/log.h"

using namespace sim;
using config_test = sim::test;

TEST_F(config_test, every_setting_is_set_by_the_sample_file_and_only_passwords_are_confidential) {
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
    EXPECT_EQ(str::sprintf("%s %s %s %s %d %d", ntp_server, base_name, http_username1,
                           http_password1, log_level, tftp_enabled),
              "pool.ntp.org vorn-q7 admin bluefern 9 0");
    settings.init();
    bytes const open = "<?xml?><settings><phone-settings>";
    bytes const name = "<base_name>a</base_name>";
    for (auto const& [content, values] : table<bytes, char const*>{
             {open + "</phone-settings><phone-settings>" + name + "</phone-settings><x/>", "a 9 0"},
             {open + "<x/><log>3</log><dhcp/></phone-settings>" + name + "</settings>", "- 9 0"},
             {open + "<log idx='10'>3</log><x/></phone-settings></settings>", "- 3 0"},
             {"<?xml?><s><phone-settings>" + name + "</phone-settings></s>", "- 9 0"},
             {" " + open + name, "- 9 0"},
             {"", "- 9 1"}}) {
        base_name = "-";
        log_level = 9;
        tftp_enabled = false;
        files["settings.xml"].content = content;
        reload_settings();
        EXPECT_EQ(str::sprintf("%s %d %d", base_name, log_level, tftp_enabled), values) << content;
    }
    EXPECT_EQ(take_log(), lines{"3 Could not process configuration file"});
}

TEST_F(config_test, values_are_read_by_type_and_permissions_by_letters) {
    bool flag = false;
    int number = 0;
    str text;
    settings.register_bool("key", 1, flag, false);
    settings.register_int("key", 2, number, false);
    settings.register_str("key", 3, text, false);
    for (str const row : {"TRUE=-w-=1 0 TRUE 2", "On=rw=1 0 On 0", "yes=r=1 0 yes 1", "1=x=0 1 1 1",
                          "12 x=WR=0 12 12 x 0"}) {
        for (char const* index : {"1", "2", "3"}) {
            settings.set_provision("key", row.get_field(0, '='), row.get_field(1, '='), index);
        }
        int const perm = settings.registered.find("key3")->permission;
        EXPECT_EQ(str::sprintf("%d %d %s %d", flag, number, text, perm), row.get_field(2, '='));
    }
}
