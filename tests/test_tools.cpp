#include "sim/sim.h"

#include "config/settings.h"
#include "tools/device_status.h"
#include "tools/settings_check.h"

using namespace sim;

using tools_test = sim::test;

TEST_F(tools_test, the_check_warns_of_all_that_is_not_as_it_looks) {
    std::string const begin = "<?xml version=\"1.0\"?><settings><phone-settings>";
    std::string const end = "</phone-settings></settings>";
    for (auto const& [content, warnings] : table<std::string, lines>{
             {"", {"the file is empty"}},
             {"\xEF\xBB\xBF<?xml?>", {"a byte order mark"}},
             {" <?xml?>", {"does not begin"}},
             {"<?xml?><setting/>", {"the root element is \"setting\""}},
             {"<?xml?><settings><dhcp>1</dhcp><x/></settings>",
              {"dhcp is ignored: it stands outside", "section \"x\"", "no section"}},
             {begin + "<ntp>x</ntp><log>1</log><log idx=\"5\">1</log>" + end,
              {"ntp is ignored", "log is ignored without", "log idx=\"5\" is ignored"}},
             {begin + "<asset_id>a</asset_id><asset_id>b", {"settings is unfinished"}},
             {begin + "<asset_id>a</asset>" + end, {"asset_id is unfinished"}},
             {begin + "<vlan_id>5x</vlan_id><vlan_prio>8</vlan_prio>" + end,
              {"vlan_id is no number", "vlan_id 5 with vlan_prio 8 is not used"}},
             {begin + "<asset_id>a</asset_id><asset_id> b</asset_id>" + end,
              {"asset_id stands twice", "asset_id has blanks"}},
             {begin + "<telnet_enabled>1</telnet_enabled>" + end, {"counts as false"}},
             {begin + "<telnet_enabled>on</telnet_enabled>" + end, {"everyone may read"}},
             {begin + "<dhcp>off</dhcp><ip_adr>10.1.0.2</ip_adr>" + end,
              {"dhcp is \"off\"", "ip_adr is not used"}},
             {begin + "<dhcp>false</dhcp><ip_adr>10.1.0.2</ip_adr>" + end, {"DHCP is used"}},
             {begin + "<dhcp>false</dhcp><ip_adr>10.1.0.2</ip_adr><netmask>255.0.0.0</netmask>" +
                  end,
              {"gateway is missing"}},
             {begin + "<dns_server2>ns</dns_server2>" + end, {"DNS server \"ns\" is no address"}},
             {"<?xml?><!DOCTYPE x><settings/>", {"document type"}},
             {begin + "<ntp_server>2001:db8::1</ntp_server>" + end,
              {"cannot be resolved", "no port: db8::1"}},
             {begin + "<ntp_server>Ntp.org:70000</ntp_server>" + end,
              {"cannot be resolved", "no port: 70000"}},
             {begin + "<ntp_server>[2001:db8::1]:123</ntp_server>" + end, {}}}) {
        SetUp();
        settings_report const report = check_settings(to_str(content), false);
        EXPECT_EQ(report.warnings, int(warnings.size())) << content << "\n" << of(report.text);
        for (std::string const& each : warnings) {
            EXPECT_NE(of(report.text).find(each), std::string::npos) << of(report.text);
        }
    }
}

TEST_F(tools_test, the_check_shows_each_setting_and_where_it_comes_from_but_no_password) {
    str const content = "<?xml?><settings><phone-settings><log idx=\"10\">3</log>"
                        "<http_password>&#7;secret</http_password></phone-settings></settings>";
    std::string const text = of(check_settings(content, false).text);
    for (char const* line :
         {"log10                file     3\n", "base_name            default  vorn-q7\n",
          "telnet_enabled       default  false\n", "http_password        file     (not shown)\n",
          "ieee802_1x_password  default  -\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    }
    SetUp();
    EXPECT_GE(check_settings(content, true).text.find("\\x07secret"), 0);
}

TEST_F(tools_test, the_status_keeps_the_newest_of_each_row) {
    device_status status;
    auto const says = [&](char const* text, int level = 5) {
        log_record record;
        record.level = level;
        record.text = text;
        return status.take(record, "12:00:00");
    };
    auto const shows = [&](char const* label, char const* text) {
        std::string const line = std::string(label) + "12:00:00  " + text + "\n";
        EXPECT_NE(of(status.text()).find(line), std::string::npos) << line << of(status.text());
    };
    EXPECT_FALSE(says("Send LLDP"));
    says("Using VLAN 7");
    shows("VLAN in use       ", "7, no policy of a switch known");
    says("Starting LLDP");
    says("LLDP: VLAN=100, Priority=5, DSCP=46");
    says("Using VLAN 100");
    shows("Policy of switch  ", "VLAN 100, priority 5, DSCP 46");
    shows("VLAN in use       ", "100, as the switch says");
    says("DHCPv4: Use IP address 10.1.0.2");
    says("DHCPv4 on eth1.100 goes to REBINDING");
    shows("IPv4              ", "REBINDING on eth1.100");
    shows("  address         ", "taken off");
    says("TFTP: Receive a (b) (7 bytes)");
    shows("Transfer          ", "a (b) received");
    for (char const* failure : {"first", "second", "third\n", "third\n"}) {
        says(failure, 1);
    }
    shows("Failure           ", "third\\x0a");
    shows("  before it       ", "first");
    says("Read MAC address 0004aabbccdd");
    EXPECT_EQ(status.text().find("eth1.100"), -1) << "the daemon has started anew";
}
