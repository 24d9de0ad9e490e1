#include "sim/sim.h"

#include "config/setting_container.h"
#include "config/settings.h"
#include "core/link_monitor.h"
#include "core/start_up.h"
#include "lib/descriptors.h"
#include "tftp/tftp.h"

#include <cerrno>

using namespace sim;

namespace {

char const key_file[] = "/nv/privatekey.txt";
bytes const good_credentials = "username:admin\npassword:bluefern\n";

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

void receive(unsigned int opcode, unsigned int number, bytes const& rest = "") {
    datagram_arrives_at(transfer().socket, big_endian(opcode, 2) + big_endian(number, 2) + rest);
    run_for(0);
}

// A write in blocks of 512 bytes; behind each comes one that is not its turn.
void upload(bytes const& name, bytes const& content) {
    request(2, name);
    for (unsigned int i = 0; i <= content.size() / 512 && tftp_ports.count > 0; ++i) {
        receive(3, i + 1, content.substr(i * 512, 512));
        receive(3, i + 6, "early");
    }
}

std::string stored(std::string const& path) {
    return files.count(path) ? files[path].content : "none";
}

std::string temporary_files() {
    std::string names;
    for (auto const& [name, each] : files) {
        names += name.starts_with("tmp.") || name.ends_with(".new") ? name + " " : "";
    }
    return names;
}

events const world = {
    {"read", [](auto& name) { request(1, name); }},
    {"elsewhere", [](auto& name) { request(1, name, "192.0.2.2"); }},
    {"write", [](auto& name) { request(2, name); }},
    {"ack", [](auto& block) { receive(4, unsigned(std::stoi(block))); }},
    {"data", [](auto& block) { receive(3, unsigned(std::stoi(block)), bytes(512, 'x')); }},
    {"end", [](auto& block) { receive(3, unsigned(std::stoi(block)), "x"); }},
    {"error", [](auto&) { receive(5, 3, "disk full" + bytes(1, '\0')); }},
    {"closed", [](auto&) { tftp_enabled = false; }},
    {"last", [](auto&) { transfer().block = 65535; }},
    {"transfers", [](auto&) { say(std::to_string(tftp_ports.count)); }},
    {"stored",
     [](auto& name) { say(std::to_string(stored(name).size()) + " bytes " + temporary_files()); }},
};

class tftp_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        files["settings.xml"].content = "present";
        files["f"].content = bytes(1024, 'x') + "end";
        files["even"].content = bytes(512, 'x');
        files["empty"];
        files["pipe"] = {"x", file::pipe};
        settings.init();
        init_tftp();
        tftp_enabled = true;
    }
};

}  // namespace

TEST_F(tftp_test, transfers_go_like_this) {
    tell(
        world,
        {{"read:f read:f 2.5 ack:2 ack:1 ack:2 elsewhere:f transfers log 3.99 transfers 100 "
          "transfers log",
          "0 1 2 DATA 1 512, 2.5 DATA 2 512, DATA 3 3, DATA 1 512, 2, 3 Could not process "
          "configuration file, 6 TFTP: Request for f from 192.0.2.1:69, 7 TFTP: Message "
          "repetition, dropping read request for f, 6 TFTP: Request for f from 192.0.2.2:69, 3.5 "
          "DATA 3 3, DATA 1 512, 4.5 DATA 3 3, DATA 1 512, 5.5 DATA 3 3, DATA 1 512, 6.49 2, "
          "106.49 0, 3 TFTP: Retransmit timeout on 192.0.2.1:69, 3 TFTP: Retransmit timeout on "
          "192.0.2.2:69"},
         {"read:even ack:1 ack:2 transfers", "0 DATA 1 512, DATA 2 0, 0"},
         {"read:f last ack:65535 ack:0", "0 DATA 1 512, DATA 0 512"},  // Block numbers do not wrap.
         {"read:missing read:empty read:pipe read:/nv read: closed read:f write:f write:auth.txt",
          "0 0 0 0 0 ERROR 1 File Not Found, 0 0 ERROR 2 Authentication Required, ACK 0"},
         {"write:n end:1 data:1 end:2 stored:n 59.99 transfers 0.01 transfers log",
          "0 ACK 0, 0 0 ACK 1, ACK 2, 1 bytes tmp.2 , 59.99 1, 60 0, 3 Could not process "
          "configuration file, 7 TFTP: Open port for writing, 6 TFTP: Receive n (1 bytes), 7 TFTP: "
          "Close port"},
         {"write:n data:2 data:1 data:1 stored:n end:2 end:2 end:7 stored:n",
          "0 ACK 0, ACK 2, 0 0 ACK 1, 4 bytes tmp.1 , 0 0 ACK 2, ACK 7, 513 bytes "},
         {"write:f data:1 data:2 log error transfers stored:f log",
          "0 ACK 0, ACK 1, ACK 2, 3 Could not process configuration file, 7 TFTP: Open port for "
          "writing, 0, 1027 bytes , 5 TFTP: Received error 3: disk full"}});
    for (auto const& [name, mode] : table<char const*, unsigned int>{
             {"ata-x", 0777}, {"/nv/ata-x", 0777}, {"/nv/a/ata-x", 0666}}) {
        upload(name, "");
        EXPECT_EQ(files.at(name).mode, mode);
    }
    default_interface_index = 2;
    sent.clear();
    request(1, "missing", "fe80::7");
    EXPECT_EQ(sent.at(0).to, "[fe80::7%2]:69");
    EXPECT_BYTES(sent[0].data, hex("0005 0001") + "File Not Found" + '\0');
    request(1, "f");
    EXPECT_EQ(describe(transfer().socket), "udp *:0 to 192.0.2.1:69 reuse nonblocking");
}

TEST_F(tftp_test, a_write_that_cannot_be_stored_keeps_the_old_file) {
    for (auto const& [name, call, good_calls] :
         table<char const*, char const*, int>{{"f", "open", 0},
                                              {"f", "write", 0},
                                              {"f", "rename", 0},
                                              {"/nv/f", "read", 1},  // in the middle of the copy
                                              {"/nv/f", "write", 6},
                                              {"/nv/f", "fsync", 1}}) {
        SetUp();
        nv_is_apart = true;
        files[name].content = "old";
        fail(call, EIO, good_calls);
        EXPECT_EQ(play(world, std::string("write:") + name + " data:1 data:2 data:3 data:4 end:5"),
                  "0 ACK 0, ACK 1, ACK 2, ACK 3, ACK 4, ACK 5");
        EXPECT_EQ(temporary_files() + stored(name), "old") << call;
    }
    EXPECT_EQ(count_logged("1 Cannot rename file tmp.1 to /nv/f"), 1);
}

TEST_F(tftp_test, whenever_the_power_goes_each_file_is_the_old_one_or_the_new_one) {
    auto const work = [](bytes const& path, bytes const& content) {
        start_up();
        if (path != "/nv/rc.vorn") {
            upload(path, content);
        }
    };
    bytes const script = "#!/bin/sh\n";
    bytes const key(700, 'k');
    bytes const settings_begin = "<?xml?><settings><phone-settings><telnet_enabled>";
    bytes const closed = settings_begin + "false</telnet_enabled></phone-settings></settings>";
    bytes const open = settings_begin + "true</telnet_enabled></phone-settings></settings>";
    for (auto const& [path, before, after, apart] :
         table<bytes, bytes, bytes, bool>{{"/nv/rc.vorn", script, script + "./ata-app&\n", false},
                                          {"settings.xml", open, closed + bytes(700, ' '), false},
                                          {key_file, "none", key, false},
                                          {key_file, "none", key, true}}) {
        bool was_cut = true;
        for (int good_calls = 0; was_cut; ++good_calls) {
            test::SetUp();
            nv_is_apart = apart;
            files["settings.xml"].content = closed;
            if (before != "none") {
                files[path].content = before;
            }
            cut_power(good_calls);
            work(path, after);
            reset_daemon();
            was_cut = power_returns();
            bytes const found = stored(path);
            EXPECT_TRUE(found == after || (was_cut && found == before)) << path << good_calls;
            start_up();
            EXPECT_EQ(tftp_enabled, found == open) << "as meant to be";
            reset_daemon();
            if (path == "settings.xml") {
                files[path].content = open;
            }
            work(path, after);
            EXPECT_EQ(stored(path), after) << path << good_calls;
            tftp_enabled = true;
            upload("next", "");
            EXPECT_EQ(temporary_files(), "") << path << good_calls;
        }
    }
}

TEST_F(tftp_test, good_credentials_and_the_first_key_or_the_same_again_open_access) {
    for (auto const& [text, is_good] : table<bytes, bool>{
             {"x\r\npassword :\tbluefern \r\nother:1\n username: admin", true},
             {"username:x\nusername:admin\npassword:bluefern", true},
             {"username:admin\npassword:Bluefern", false},
             {"Username:admin\npassword:bluefern", false},
             {good_credentials + bytes(16000 - good_credentials.size(), '\n'), true},
             {good_credentials + bytes(16001 - good_credentials.size(), '\n'), false}}) {
        SetUp();
        tftp_enabled = false;
        upload("auth.txt", text);
        EXPECT_EQ(tftp_enabled, is_good) << text;
        EXPECT_EQ(stored("auth.txt"), "none");
        EXPECT_EQ(count_logged("5 TFTP: Authentication succeeded"), is_good);
    }
    files["settings.xml"].content =
        "<?xml?><settings><phone-settings><http_username>you</http_username>"
        "</phone-settings></settings>";
    upload("auth.txt", "username:you\npassword:bluefern");
    EXPECT_EQ(count_logged("5 TFTP: Authentication succeeded"), 1) << "the settings are read first";
    for (auto const& [old_key, key, is_good, key_after] :
         table<bytes, bytes, bool, bytes>{{"", "key", true, "key"},
                                          {"key", "key", true, "key"},
                                          {"keys", "key", false, "keys"},
                                          {"", bytes(16001, 'k'), false, ""}}) {
        SetUp();
        tftp_enabled = false;
        files[key_file].content = old_key;
        upload(key_file, key);
        EXPECT_EQ(tftp_enabled, is_good) << old_key;
        EXPECT_EQ(stored(key_file), key_after);
    }
}

TEST_F(tftp_test, without_access_a_seventeenth_upload_takes_the_place_of_the_oldest) {
    request(1, "f", "192.0.2.99");  // a read, which does not count
    tftp_enabled = false;
    request(2, "auth.txt", "192.0.2.1");
    int const oldest = transfer().socket;
    for (int i = 2; i <= 16; ++i) {
        request(2, "auth.txt", "192.0.2." + std::to_string(i));
    }
    EXPECT_TRUE(tftp_ports.contains(oldest));
    request(2, key_file, "192.0.2.17");
    EXPECT_FALSE(tftp_ports.contains(oldest));
    EXPECT_EQ(tftp_ports.count, 17);
    upload("auth.txt", good_credentials);
    EXPECT_TRUE(tftp_enabled) << "honest ones come through";
    request(2, "f");
    EXPECT_EQ(tftp_ports.count, 18) << "with access there is no limit";
}

TEST_F(tftp_test, reads_hold_a_window_of_their_file_and_never_end_as_if_it_were_whole) {
    bytes content;
    for (unsigned int i = 0; i < 4000; ++i) {
        content += big_endian(i, 4);
    }
    for (auto const& [name, fate] : table<char const*, char const*>{
             {"f", ""}, {"/proc/f", ""}, {"f", "read error"}, {"f", "shorter"}}) {
        SetUp();
        files[name].content = content;
        request(1, name);
        bytes received = transfer().last_packet.empty() ? "" : of(transfer().last_packet).substr(4);
        *fate == 'r' ? fail("read", EIO) : files[name].content.resize(*fate ? 9000 : 16000);
        for (unsigned int block = 1; tftp_ports.count > 0; ++block) {
            EXPECT_LE(transfer().outgoing.capacity(), 8176);
            receive(4, block);
            received += tftp_ports.count > 0 ? sent.back().data.substr(4) : "";
        }
        EXPECT_TRUE(*fate ? received.size() % 512 == 0 : received == content) << name << fate;
        EXPECT_EQ(open_descriptors(), 5) << "two listen, log, spare, the one that was left";
    }
}

TEST_F(tftp_test, sockets_of_ended_transfers_make_room_when_the_table_is_full) {
    files["f"].content = "x";
    for (int i = 0; i < 3; ++i) {
        request(1, "f");
        receive(4, 1);
    }
    EXPECT_EQ(descriptors::abandoned.count, 3);
    EXPECT_TRUE(describe(descriptors::abandoned.head->value).ends_with(" deaf"));
    descriptors_max = open_descriptors();
    int const oldest = descriptors::abandoned.head->value;
    request(2, "auth.txt");
    EXPECT_EQ(transfer().socket, oldest);
    for (int i = 0; i < 9; ++i) {
        request(2, key_file, "192.0.2." + std::to_string(i));
    }
    EXPECT_EQ(descriptors::abandoned.count, 0);
    EXPECT_EQ(tftp_ports.count, 3);
    tftp_enabled = false;
    files[key_file].content = "key";
    receive(3, 1, "another key");
    EXPECT_FALSE(tftp_enabled);
    first_descriptor = descriptors_max = 1024;
    request(2, "auth.txt");
    EXPECT_EQ(tftp_ports.count, 3) << "a socket that select() cannot take";
}

TEST_F(tftp_test, without_access_nobody_listens_after_32_seconds) {
    for (bool const access : {true, false}) {
        SetUp();
        tftp_enabled = access;
        link_monitor("eth1");
        run_until(31.99);
        EXPECT_EQ(describe(fd_tftp4) + ", " + describe(fd_tftp6),
                  "udp *:69 reuse nonblocking, udp [*]:69 reuse nonblocking");
        run_until(32);
        EXPECT_EQ(fd_tftp4 + fd_tftp6 == -2, !access);
    }
}
