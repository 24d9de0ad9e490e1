#include "sim/sim.h"

#include "config/settings.h"
#include "core/link_monitor.h"
#include "core/start_up.h"
#include "tftp/tftp.h"

#include <cerrno>

using namespace sim;

namespace {

char const key_file[] = "/nv/privatekey.txt";

void request(unsigned int opcode, bytes const& name, std::string const& from = "192.0.2.1") {
    datagram_arrives(69, big_endian(opcode, 2) + name + bytes("\0octet\0", 7), from);
    run_for(0);
}

// The transfer that was begun last.
tftp_result& transfer() {
    auto* last = tftp_ports.first();
    while (auto* const next = tftp_ports.next(last)) {
        last = next;
    }
    return last->value;
}

void receive(unsigned int opcode, int number, bytes const& rest = "") {
    datagram_arrives_at(transfer().socket,
                        big_endian(opcode, 2) + big_endian(unsigned(number), 2) + rest);
    run_for(0);
}

// A write in blocks of 512 bytes; behind each comes one that is not its turn.
void upload(bytes const& name, bytes const& content) {
    request(2, name);
    for (int i = 0; i <= int(content.size() / 512) && tftp_ports.count > 0; ++i) {
        receive(3, i + 1, content.substr(size_t(i) * 512, 512));
        receive(3, i + 6, "early");
    }
}

std::string temporary_files() {
    std::string names;
    for (auto const& [name, each] : files) {
        names += name.starts_with("tmp.") || name.ends_with(".new") ? " " + name : "";
    }
    return names;
}

events const world = {
    {"read", [](auto& name) { request(1, name); }},
    {"elsewhere", [](auto& name) { request(1, name, "192.0.2.2"); }},
    {"write", [](auto& name) { request(2, name); }},
    {"ack", [](auto& block) { receive(4, std::stoi(block)); }},
    {"data", [](auto& block) { receive(3, std::stoi(block), bytes(512, 'x')); }},
    {"end", [](auto& block) { receive(3, std::stoi(block), "end"); }},
    {"error", [](auto& code) { receive(5, std::stoi(code), bytes("no room\0", 8)); }},
    {"full", [](auto&) { fail("write", ENOSPC); }},
    {"closed", [](auto&) { tftp_enabled = false; }},
    {"last", [](auto&) { transfer().block = 65535; }},
    {"transfers", [](auto&) { say(std::to_string(tftp_ports.count)); }},
    {"mode", [](auto& name) { say(std::to_string(files.at(name).mode)); }},
    {"monitor", [](auto&) { link_monitor("eth1"); }},
    {"listen", [](auto&) { say(std::to_string((fd_tftp4 != -1) + (fd_tftp6 != -1))); }},
    {"size",
     [](auto& name) { say(std::to_string(files[name].content.size()) + temporary_files()); }},
};

class tftp_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        files["f"].content = bytes(1024, 'x') + "end";
        files["even"].content = bytes(512, 'x');
        files["empty"];
        files["pipe"] = {"x", file::pipe};
        files["settings.xml"].content = "<?xml?>";
        init_tftp();
        tftp_enabled = true;
    }
};

}  // namespace

TEST_F(tftp_test, transfers_go_like_this) {
    default_interface_index = 2;
    request(1, "missing", "fe80::7");
    EXPECT_EQ(sent.at(0).to, "[fe80::7%2]:69");
    EXPECT_BYTES(sent.at(0).data, hex("0005 0001") + "File Not Found" + '\0');
    tell(
        world,
        {{"read:f read:f 2.5 ack:2 ack:1 ack:2 elsewhere:f 3.99 transfers 0.01 transfers log",
          "0 1 2 DATA 1 512, 2.5 DATA 2 512, DATA 3 3, DATA 1 512, 3.5 DATA 3 3, DATA 1 512, 4.5 "
          "DATA 3 3, DATA 1 512, 5.5 DATA 3 3, DATA 1 512, 6.49 2, 6.5 0, 6 TFTP: Request for f "
          "from 192.0.2.1:69, 7 TFTP: Message repetition, dropping read request for f, 6 TFTP: "
          "Request for f from 192.0.2.2:69, 3 TFTP: Retransmit timeout on 192.0.2.1:69, 3 TFTP: "
          "Retransmit timeout on 192.0.2.2:69"},
         // Block numbers do not wrap.
         {"read:even ack:1 ack:2 transfers log read:f last ack:65535 ack:0",
          "0 DATA 1 512, DATA 2 0, 0, 6 TFTP: Request for even from 192.0.2.1:69, 8 TFTP: Transfer "
          "finished successfully, DATA 1 512, DATA 0 512"},
         {"read:missing read:empty read:pipe read:/nv read: closed read:f write:f write:auth.txt",
          "0 0 0 0 0 ERROR 1 File Not Found, 0 0 ERROR 2 Authentication Required, ACK 0"},
         {"write:n data:2 data:1 data:1 size:n end:2 end:2 end:7 size:n end:3 size:n 59.99 "
          "transfers 0.01 transfers log",
          "0 ACK 0, ACK 2, 0 0 ACK 1, 0 tmp.1, 0 0 ACK 2, ACK 7, 515, ACK 3, 515 tmp.2, 59.99 1, "
          "60 0, 7 TFTP: Open port for writing, 6 TFTP: Receive n (3 bytes), 7 TFTP: Close port"},
         {"write:f data:1 data:2 error:1 size:f full write:f data:1 end:2 size:f error:0 transfers "
          "log",
          "0 ACK 0, ACK 1, ACK 2, 1027, ACK 0, ACK 1, ACK 2, 1027, 0, 7 TFTP: Open port for "
          "writing, 5 TFTP: Received error 1: no room, 7 TFTP: Open port for writing, 6 TFTP: "
          "Receive f (3 bytes), 9 TFTP: Received error 0: no room"},
         {"write:ata-x end:1 write:/nv/ata-x end:1 write:/nv/a/ata-x end:1 mode:ata-x "
          "mode:/nv/ata-x mode:/nv/a/ata-x",
          "0 ACK 0, ACK 1, ACK 0, ACK 1, ACK 0, ACK 1, 0 0 511, 438"},
         // Without access nobody listens for long.
         {"monitor 32 listen closed 2 listen", "32 2, 34 0"},
         {"closed monitor 31.99 listen 0.01 listen", "31.99 2, 32 0"}});
}

TEST_F(tftp_test, whatever_fails_a_file_is_the_old_one_or_the_new_one) {
    char const* const calls[] = {"open", "write", "read", "fsync", "rename"};
    bytes const fresh(700, 'n');
    for (char const* path : {"f", "/nv/f"}) {
        for (int n = 0; n < 200; ++n) {
            std::string const call = calls[n % 5];  // fails from its n / 5-th time on
            SetUp();
            nv_is_apart = true;
            files[path].content = "old";
            fail(call, EIO, n / 5);
            upload(path, fresh);
            bytes const found = files[path].content + temporary_files();
            EXPECT_TRUE(found == fresh || (found == "old" && n < 195)) << path << n << call;
        }
    }
}

TEST_F(tftp_test, whenever_the_power_goes_each_file_is_the_old_one_or_the_new_one) {
    bytes const script = "#!/bin/sh\n";
    bytes const settings_begin = "<?xml?><settings><phone-settings><telnet_enabled>";
    bytes const closed = settings_begin + "false</telnet_enabled></phone-settings></settings>";
    bytes const open = settings_begin + "true</telnet_enabled></phone-settings></settings>";
    for (auto const& [path, before, after, apart] :
         table<bytes, bytes, bytes, bool>{{"/nv/rc.vorn", script, script + "./ata-app&\n", false},
                                          {"settings.xml", open, closed + bytes(700, ' '), false},
                                          {key_file, "", bytes(700, 'k'), false},
                                          {key_file, "", bytes(700, 'k'), true}}) {
        auto const work = [&path = path, &after = after] {
            reset_daemon();
            start_up();
            path == "/nv/rc.vorn" ? void() : upload(path, after);
        };
        bool was_cut = true;
        for (int good_calls = 0; was_cut; ++good_calls) {
            SetUp();
            nv_is_apart = apart;
            files["settings.xml"].content = closed;
            files[path].content = before;
            cut_power(good_calls);
            work();
            was_cut = power_returns();
            bytes const found = files[path].content;
            EXPECT_TRUE(found == after || (was_cut && found == before)) << path << good_calls;
            reset_daemon();
            start_up();
            EXPECT_EQ(tftp_enabled, found == open) << "as meant to be";
            files["settings.xml"].content = path == "settings.xml" ? open : closed;
            work();
            EXPECT_EQ(files[path].content, after) << path << good_calls;
            tftp_enabled = true;
            upload("next", "");
            EXPECT_EQ(temporary_files(), "") << path << good_calls;
        }
    }
}

TEST_F(tftp_test, good_credentials_and_the_first_key_or_the_same_again_open_access) {
    bytes const good = "username:admin\npassword:bluefern\n";
    for (auto const& [name, before, content, is_good] : table<bytes, bytes, bytes, bool>{
             {"auth.txt", "", "x\r\npassword :\tbluefern \r\nother:1\n username: admin", true},
             {"auth.txt", "", "username:x\n" + good, true},
             {"auth.txt", "", "Username:admin\npassword:bluefern", false},
             {"auth.txt", "", good + bytes(16000 - good.size(), '\n'), true},
             {"auth.txt", "", good + bytes(16001 - good.size(), '\n'), false},
             {key_file, "", "key", true},
             {key_file, "key", "key", true},
             {key_file, "keys", "key", false},
             {key_file, "", bytes(16001, 'k'), false}}) {
        SetUp();
        tftp_enabled = false;
        files[name].content = before;
        upload(name, content);
        EXPECT_EQ(tftp_enabled, is_good) << before << ", " << content;
        EXPECT_EQ(files[name].content, is_good && name == key_file ? content : before);
        bool const is_told =
            play({}, "log").find("5 TFTP: Authentication succeeded") != bytes::npos;
        EXPECT_EQ(is_told, is_good && name != key_file);
    }
}

TEST_F(tftp_test, without_access_a_seventeenth_upload_takes_the_place_of_the_oldest) {
    play(world, "read:f closed write:auth.txt");
    int const oldest = transfer().socket;
    for (int i = 2; i <= 17; ++i) {
        EXPECT_TRUE(tftp_ports.contains(oldest)) << i;
        request(2, key_file);
    }
    EXPECT_FALSE(tftp_ports.contains(oldest));
    EXPECT_EQ(describe(oldest), "udp *:0 to 192.0.2.1:69 reuse nonblocking deaf");
    EXPECT_EQ(tftp_ports.count, 17) << "one of them reads";
}

TEST_F(tftp_test, reads_hold_a_window_of_their_file_and_never_end_as_if_it_were_whole) {
    bytes const content = bytes(9000, 'a') + bytes(7000, 'b');
    for (auto const& [name, fate] : table<char const*, std::string>{
             {"f", "whole"}, {"/proc/f", "whole"}, {"f", "unreadable"}, {"f", "shorter"}}) {
        SetUp();
        files[name].content = content;
        request(1, name);
        bytes received = sent.back().data.substr(4);
        fate == "unreadable" ? fail("read", EIO)
                             : files[name].content.resize(fate == "whole" ? 16000 : 9000);
        for (int block = 1; tftp_ports.count > 0; ++block) {
            EXPECT_LE(transfer().outgoing.capacity(), 8176);
            receive(4, block);
            received += tftp_ports.count > 0 ? sent.back().data.substr(4) : "";
        }
        EXPECT_TRUE(fate == "whole" ? received == content : received.size() % 512 == 0)
            << name << fate;
        EXPECT_EQ(open_descriptors(), 4) << "two listen, log, the one that was left";
    }
}
