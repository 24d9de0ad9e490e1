#include "sim/sim.h"

#include "config/settings.h"
#include "tools/device_status.h"
#include "tools/settings_check.h"

using namespace sim;
using tools_test = sim::test;

TEST_F(tools_test, the_check_warns_of_all_that_is_not_as_it_looks_and_shows_all_settings) {
    std::string const begin = "<?xml version=\"1.0\"?><settings><phone-settings>";
    std::string const address = "<dhcp>false</dhcp><ip_adr>10.1.0.2</ip_adr><ntp_server>";
    std::string const end = "</ntp_server></phone-settings></settings>";
    for (auto const& [content, warnings] : table<std::string, lines>{
             {"", {"the file is empty"}},
             {"\xEF\xBB\xBF<?xml?>", {"a byte order mark"}},
             {"<?xml?><setting/>", {"the root element is \"setting\""}},
             {"<?xml?><settings><dhcp>1</dhcp><x/></settings>",
              {"dhcp is ignored: it stands outside", "section \"x\"", "no section"}},
             {begin + "<ntp>x</ntp><log>1</log>x<a/><log idx=\"5\"/><b></",
              {"ntp is ignored", "log is ignored without", "log idx=\"5\" is ignored",
               "text between", "settings is unfinished"}},
             {begin + "<dns_server2>ns</dns_server2><ntp_server>" + end,
              {"DNS server \"ns\" is no address"}},
             {"<?xml?><!DOCTYPE x><settings/>", {"document type"}},
             {"<?xml?><settings/>", {"no section"}},
             {begin +
                  "<asset_id>a</asset><vlan_id>5x</vlan_id><vlan_prio>8</vlan_prio>"
                  "<dhcp>off</dhcp><ip_adr>10.1.0.2</ip_adr><ip_adr>10.1.0.2 </ip_adr>"
                  "<telnet_enabled>1</telnet_enabled><ntp_server>1::1" +
                  end,
              {"asset_id is unfinished", "vlan_id is no number", "vlan_prio 8 is not used",
               "dhcp is \"off\"", "ip_adr is not used", "ip_adr stands twice", "ip_adr has blanks",
               "counts as false", "cannot be resolved", "no port: :1"}},
             {begin + address + "Ntp.org:70000" + end,
              {"DHCP is used", "cannot be resolved", "no port: 70000"}},
             {begin + "<netmask>255.0.0.0</netmask>" + address + "[1::1]:123" + end,
              {"gateway is missing"}}}) {
        SetUp();
        settings_report const report = check_settings(to_str(content), false);
        EXPECT_EQ(report.warnings, int(warnings.size())) << content << "\n" << of(report.text);
        for (std::string const& each : warnings) {
            EXPECT_GE(report.text.find(to_str(each)), 0) << each << "\n" << of(report.text);
        }
        EXPECT_GE(report.text.find("http_password        default  (not shown)\n"), 0);
    }
}

TEST_F(tools_test, the_status_keeps_the_newest_of_each_row) {
    device_status status;
    for (auto const& [level, record, line] : table<int, char const*, char const*>{
             {5, "Using VLAN 7", "VLAN in use       12:00:00  7, no policy of a switch known\n"},
             {5, "Starting LLDP", "VLAN in use                 -\n"},
             {5, "LLDP: VLAN=100, Priority=5, DSCP=46", "VLAN 100, priority 5, DSCP 46\n"},
             {5, "Using VLAN 100", "VLAN in use       12:00:00  100, as the switch says\n"},
             {5, "DHCPv4 on eth1.100 goes to REBINDING",
              "REBINDING on eth1.100\n  address         12:00:00  taken off\n"},
             {5, "TFTP: Receive a (b) (7 bytes)", "Transfer          12:00:00  a (b) received\n"},
             {1, "first", "Failure           12:00:00  first\n"},
             {2, "second\n", "second\\x0a\n  before it       12:00:00  first\n"},
             {2, "second\n", "second\\x0a\n  before it       12:00:00  first\n"},
             {3, "third", "Failure           12:00:00  second"},
             {5, "Read MAC address 0004aabbccdd", "IPv4                        -\n"}}) {
        (void)status.take({level, record, ""}, "12:00:00");
        EXPECT_GE(status.text().find(line), 0) << line << of(status.text());
    }
}
