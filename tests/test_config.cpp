#include "sim/sim.h"

#include "config/config_file.h"
#include "config/setting_container.h"
#include "config/settings.h"
#include "core/log.h"

using namespace sim;

namespace {

class config_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        settings.init();
        tftp_enabled = false;
    }
};

std::string section(std::string const& elements) {
    return "<phone-settings>" + elements + "</phone-settings>";
}

std::string document(std::string const& body) {
    return "<?xml version=\"1.0\"?><settings>" + body + "</settings>";
}

}  // namespace

TEST_F(config_test, every_setting_has_its_key_and_default_and_the_sample_file_sets_it) {
    table<char const*, str*, char const*, char const*> const texts = {
        {"base_name", &base_name, "vorn-q7", "lobby"},
        {"asset_id", &asset_id, "", "A-0042"},
        {"ieee802_1x_username", &ieee_802_1x_username, "", "lobby-1"},
        {"ieee802_1x_password", &ieee_802_1x_password, "", "salt & pepper"},
        {"dhcp", &use_dhcp, "", "false"},
        {"ip_adr", &ip_adr, "", "192.0.2.20"},
        {"netmask", &netmask, "", "255.255.255.0"},
        {"gateway", &gateway, "", "192.0.2.1"},
        {"dns_server1", &static_dns_server1, "", "192.0.2.53"},
        {"dns_server2", &static_dns_server2, "", "192.0.2.54"},
        {"dns_server3", &static_dns_server3, "", "2001:db8::53"},
        {"dns_server4", &static_dns_server4, "", "2001:db8::54"},
        {"dns_domain", &static_dns_domain, "", "voice.example"},
        {"ntp_server", &ntp_server, "pool.ntp.org", "time.voice.example"},
        {"http_username", &http_username1, "admin", "provisioning"},
        {"http_password", &http_password1, "bluefern", "correct horse"},
    };
    EXPECT_EQ(settings.registered.count, 20);
    for (auto const& [key, variable, initially, in_sample] : texts) {
        EXPECT_EQ(*variable, initially);
        bool const is_password = std::string(key).ends_with("password");
        EXPECT_EQ(settings.registered.find(key)->confidential, is_password);
    }
    tftp_enabled = true;
    process_config_file(str::read_file(SAMPLE_SETTINGS));
    for (auto const& [key, variable, initially, in_sample] : texts) {
        EXPECT_EQ(*variable, in_sample) << key;
    }
    EXPECT_EQ(vlan_id * 100 + vlan_prio * 10 + log_level, 10057);
    EXPECT_FALSE(tftp_enabled);
}

TEST_F(config_test, a_file_assigns_what_it_can_and_no_more) {
    std::string const a = "<base_name>a</base_name>";
    lines const refused = {"3 Could not process configuration file"};
    for (auto const& [content, name_afterwards, log] : table<std::string, char const*, lines>{
             {document(section(a) + section("<base_name>b &amp; c</base_name>")), "b & c", {}},
             {document(section("<base_name idx=\"1\">y</base_name>")), "vorn-q7", {}},
             {document("<other>" + a + "</other>"), "vorn-q7", {}},
             {document(section(a + a)).substr(0, 80), "", {}},  // cut off inside the name
             {" " + document(section(a)), "vorn-q7", refused},
             {"<?xm", "vorn-q7", refused}}) {
        SetUp();
        process_config_file(content.c_str());
        EXPECT_EQ(base_name, name_afterwards) << content;
        EXPECT_EQ(take_log(), log) << content;
    }
}

TEST_F(config_test, only_a_missing_or_empty_file_lets_tftp_in) {
    reload_settings();
    EXPECT_TRUE(tftp_enabled);
    for (char const* content : {"", "no xml", "<?xml?><settings/>"}) {
        tftp_enabled = false;
        files["settings.xml"].content = content;
        reload_settings();
        EXPECT_EQ(tftp_enabled, *content == 0) << content;
    }
}

TEST_F(config_test, values_are_read_by_the_type_of_the_setting) {
    for (std::string const word : {"TRUE", "On", "yes", "1", "enabled", ""}) {
        settings.set_provision("telnet_enabled", word.c_str(), str::null, str::null);
        EXPECT_EQ(tftp_enabled, word.size() > 1 && word.size() < 5) << word;
    }
    settings.set_provision("tftp_enabled", "true", str::null, str::null);
    EXPECT_FALSE(tftp_enabled);
    settings.set_provision("vlan_id", " 12 and more", str::null, str::null);
    EXPECT_EQ(vlan_id, 12);
    for (auto const& [perm, permission] :
         table<char const*, int>{{"-w-", 2}, {"rw", 0}, {"r", 1}, {"x", 1}}) {
        settings.set_provision("log", "9", perm, "10");
        EXPECT_EQ(settings.registered.find("log10")->permission, permission) << perm;
    }
    static int other;
    settings.register_int("log", 10, other, true);
    settings.set_provision("log", "4", str::null, "10");
    EXPECT_EQ(other * 10 + log_level, 49);
    EXPECT_EQ(settings.registered.find("log10")->permission, 1) << "binding anew keeps it";
}

TEST_F(config_test, a_short_value_does_not_keep_the_file_in_memory) {
    std::string const body = section("<base_name>short</base_name>") + bytes(100000, ' ');
    files["settings.xml"].content = document(body);
    reload_settings();
    EXPECT_EQ(base_name, "short");
    EXPECT_LE(base_name.capacity(), 16);
}

TEST_F(config_test, damaged_files_neither_crash_nor_cost_memory) {
    std::string const elements =
        "<log idx=\"10\" perm='rw'>9</log><base_name>a&amp;&#x41;<![CDATA[b]]></base_name><!-- -->";
    expect_survives_damage(document(section(elements)), [](bytes const& damaged) {
        process_config_file(to_str(damaged));
        log_records.clear();
    });
}
