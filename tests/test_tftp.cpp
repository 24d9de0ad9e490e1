#include "sim/sim.h"

#include "config/setting_container.h"
#include "config/settings.h"
#include "core/link_monitor.h"
#include "lib/descriptors.h"
#include "lib/utils.h"
#include "tftp/tftp.h"

#include <cerrno>

using namespace sim;

namespace {

char const key_file[] = "/nv/privatekey.txt";

bytes numbered(unsigned int opcode, unsigned int number, bytes const& rest = "") {
    return big_endian(opcode, 2) + big_endian(number, 2) + rest;
}

void request(char opcode, bytes const& name, std::string const& from = "192.0.2.1") {
    datagram_arrives(69, bytes{'\0', opcode} + name + bytes("\0octet\0", 7), from);
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

void receive(bytes const& packet) {
    datagram_arrives_at(transfer().socket, packet);
    run_for(0);
}

// What was sent since the last look: "DATA 1 512", "ACK 0", "ERROR 1 text"
lines answers() {
    lines all;
    for (packet const& each : take_sent()) {
        std::string const number = std::to_string(utils::str2int(to_str(each.data.substr(2, 2))));
        all.push_back(each.data[1] == 3
                          ? "DATA " + number + " " + std::to_string(each.data.size() - 4)
                      : each.data[1] == 4 ? "ACK " + number
                                          : "ERROR " + number + " " + each.data.substr(4));
    }
    return all;
}

// A write in blocks of 512 bytes; behind each comes one that is not its turn.
void upload(bytes const& name, bytes const& content) {
    request(2, name);
    for (size_t offset = 0, block = 1; offset <= content.size(); offset += 512, ++block) {
        receive(numbered(3, unsigned(block), content.substr(offset, 512)));
        receive(numbered(3, unsigned(block) + 5, "early"));
    }
}

std::string temporary_files() {
    std::string names;
    for (auto const& [name, each] : files) {
        names += name.starts_with("tmp.") || name.ends_with(".new") ? name + " " : "";
    }
    return names;
}

class tftp_test : public sim::test {
protected:
    void SetUp() override {
        test::SetUp();
        http_username1 = "admin";
        http_password1 = "bluefern";
        files["settings.xml"].content = "present";
        settings.init();
        init_tftp();
        tftp_enabled = true;
    }
};

}  // namespace

TEST_F(tftp_test, a_file_is_sent_block_by_block_and_ends_with_a_short_one) {
    for (size_t const size : {511, 512, 1025}) {
        SetUp();
        bytes content(size, 'x');
        content.back() = 'y';
        files["f"].content = content;
        request(1, "f");
        EXPECT_EQ(describe(transfer().socket), "udp *:0 to 192.0.2.1:69 reuse nonblocking");
        bytes received;
        for (unsigned int block = 1; tftp_ports.count == 1 && block < 9; ++block) {
            ASSERT_EQ(sent.size(), 1U);
            EXPECT_EQ(sent[0].data.substr(0, 4), numbered(3, block));
            received += sent[0].data.substr(4);
            run_for(2.5);
            EXPECT_EQ(answers().size(), 3U) << "copies";
            receive(numbered(4, block + 1));
            receive(numbered(4, block));
        }
        EXPECT_EQ(received, content);
    }
}

TEST_F(tftp_test, a_silent_reader_gets_four_copies) {
    files["f"].content = "content";
    request(1, "f");
    request(1, "f");  // dropped as a repetition
    request(1, "f", "192.0.2.2");
    run_until(3.99);
    EXPECT_EQ(answers(), lines(8, "DATA 1 7"));
    EXPECT_EQ(tftp_ports.count, 2);
    run_until(4);
    EXPECT_EQ(tftp_ports.count, 0);
}

TEST_F(tftp_test, what_cannot_be_read_or_may_not_is_refused) {
    files["empty"];
    files["pipe"] = {"x", file::pipe};
    for (char const* name : {"missing", "empty", "pipe", "/nv", ""}) {
        request(1, name);
        EXPECT_EQ(answers(), lines{"ERROR 1 File Not Found" + bytes(1, '\0')}) << name;
    }
    tftp_enabled = false;
    default_interface_index = 2;
    for (char const opcode : {1, 2}) {
        request(opcode, "settings.xml", "fe80::7");
        EXPECT_EQ(sent.at(0).to, "[fe80::7%2]:69");
        EXPECT_EQ(answers(), lines{"ERROR 2 Authentication Required" + bytes(1, '\0')});
    }
}

TEST_F(tftp_test, a_write_is_stored_once_and_stays_to_acknowledge_copies) {
    for (size_t const size : {0, 511, 513}) {
        SetUp();
        upload("ata-x", bytes(size, 'x'));
        EXPECT_EQ(files.at("ata-x").content, bytes(size, 'x'));
        EXPECT_EQ(files.at("ata-x").mode, 0777U);
        EXPECT_EQ(take_journal().back(), "fsync tmp.1") << "before it gets its name";
    }
    for (unsigned int const block : {1, 2, 3}) {
        receive(numbered(3, block, "again"));
    }
    EXPECT_EQ(answers(),
              (lines{"ACK 0", "ACK 1", "ACK 6", "ACK 2", "ACK 7", "ACK 1", "ACK 2", "ACK 3"}));
    EXPECT_EQ(files.at("ata-x").content, bytes(513, 'x'));
    run_until(59.99);
    EXPECT_EQ(tftp_ports.count, 1);
    run_until(60);
    EXPECT_EQ(tftp_ports.count, 0);
    upload("/nv/a/ata-x", "y");
    EXPECT_EQ(files.at("/nv/a/ata-x").mode, 0666U);
}

TEST_F(tftp_test, an_interrupted_write_leaves_nothing_behind) {
    files["f"].content = "old";
    request(2, "f");
    receive(numbered(3, 1, bytes(512, 'x')));
    EXPECT_NE(temporary_files(), "");
    receive(numbered(5, 3, "disk full"));
    EXPECT_EQ(temporary_files() + files["f"].content, "old");
}

TEST_F(tftp_test, a_write_that_cannot_be_stored_keeps_the_old_file) {
    for (auto const& [call, error] :
         table<char const*, int>{{"open", EROFS}, {"write", ENOSPC}, {"rename", EIO}}) {
        SetUp();
        files["f"].content = "old";
        request(2, "f");
        fail(call, error);
        receive(numbered(3, 1, bytes(512, 'x')));
        if (std::string(call) == "open") {
            repair();
        }
        receive(numbered(3, 2, "end"));
        EXPECT_EQ(answers(), (lines{"ACK 0", "ACK 1", "ACK 2"}));
        EXPECT_EQ(temporary_files() + files["f"].content, "old") << call;
    }
}

TEST_F(tftp_test, a_file_finds_its_way_to_another_file_system) {
    nv_is_apart = true;
    upload("/nv/ata-app", bytes(5000, 'x'));
    EXPECT_EQ(files.at("/nv/ata-app").content, bytes(5000, 'x'));
    EXPECT_EQ(files.at("/nv/ata-app").mode, 0777U);
    for (auto const& [call, good_calls] : table<char const*, int>{{"write", 1}, {"read", 1}}) {
        repair();
        fail(call, EIO, good_calls);  // in the middle of the copy
        upload("/nv/ata-app", bytes(3000, 'y'));
        EXPECT_EQ(temporary_files() + files["/nv/ata-app"].content, bytes(5000, 'x')) << call;
    }
}

TEST_F(tftp_test, good_credentials_open_access) {
    for (auto const& [text, is_good] :
         table<bytes, bool>{{"x\r\npassword :\tbluefern \r\nother:1\n username: admin", true},
                            {"username:x\nusername:admin\npassword:bluefern", true},
                            {"username:admin\npassword:Bluefern", false},
                            {"Username:admin\npassword:bluefern", false}}) {
        SetUp();
        tftp_enabled = false;
        upload("auth.txt", text);
        EXPECT_EQ(tftp_enabled, is_good) << text;
        EXPECT_FALSE(files.count("auth.txt"));
    }
    files["settings.xml"].content =
        "<?xml?><settings><phone-settings><http_username>you</http_username>"
        "</phone-settings></settings>";
    upload("auth.txt", "username:you\npassword:bluefern");
    EXPECT_EQ(count_logged("5 TFTP: Authentication succeeded"), 1) << "the settings are read first";
}

TEST_F(tftp_test, the_first_private_key_or_the_same_again_opens_access) {
    for (auto const& [stored, is_good] :
         table<bytes, bool>{{"", true}, {"key", true}, {"keys", false}}) {
        SetUp();
        tftp_enabled = false;
        files[key_file].content = stored;
        upload(key_file, "key");
        EXPECT_EQ(tftp_enabled, is_good) << stored;
        EXPECT_EQ(files[key_file].content, stored.empty() ? "key" : stored);
    }
}

TEST_F(tftp_test, without_access_16000_bytes_of_an_upload_are_kept_and_more_never_count) {
    tftp_enabled = false;
    bytes const good = "username:admin\npassword:bluefern\n";
    for (auto const& [size, succeeds] : table<size_t, bool>{{16000, true}, {16001, false}}) {
        upload("auth.txt", good + bytes(size - good.size(), '\n'));
        EXPECT_EQ(tftp_enabled, succeeds);
        tftp_enabled = false;
    }
    upload(key_file, bytes(16001, 'k'));
    EXPECT_FALSE(tftp_enabled || files.count(key_file));
}

TEST_F(tftp_test, without_access_a_seventeenth_upload_takes_the_place_of_the_oldest) {
    tftp_enabled = false;
    request(2, "auth.txt", "192.0.2.1");
    int const oldest = transfer().socket;
    for (int i = 2; i <= 16; ++i) {
        request(2, "auth.txt", "192.0.2." + std::to_string(i));
    }
    EXPECT_TRUE(tftp_ports.contains(oldest));
    request(2, key_file, "192.0.2.17");
    EXPECT_FALSE(tftp_ports.contains(oldest));
    EXPECT_EQ(tftp_ports.count, 16);
    upload("auth.txt", "username:admin\npassword:bluefern");
    EXPECT_TRUE(tftp_enabled) << "honest ones come through";
    request(2, "f");
    EXPECT_EQ(tftp_ports.count, 17) << "with access there is no limit";
}

TEST_F(tftp_test, reads_hold_a_window_of_their_file) {
    bytes content;
    for (unsigned int i = 0; i < 4000; ++i) {
        content += big_endian(i, 4);
    }
    files["f"].content = content;
    files["/proc/f"].content = content;  // tells no size
    for (char const* name : {"f", "/proc/f"}) {
        request(1, name);
        bytes received;
        while (tftp_ports.count > 0) {
            received += sent.back().data.substr(4);
            EXPECT_LE(transfer().outgoing.capacity(), 8176);
            receive(numbered(4, transfer().block));
        }
        EXPECT_EQ(received, content) << name;
    }
    for (char const* fate : {"read error", "shorter"}) {
        SetUp();
        files["f"].content = content;
        request(1, "f");
        fate[0] == 'r' ? fail("read", EIO) : files["f"].content.resize(9000);
        for (unsigned int block = 1; tftp_ports.count > 0; ++block) {
            EXPECT_EQ(sent.back().data.size(), 516U) << "no end that is none";
            receive(numbered(4, block));
        }
        EXPECT_EQ(open_descriptors(), 5)
            << "two listen, the log, a spare one, the one that was left";
    }
}

TEST_F(tftp_test, block_numbers_do_not_wrap) {
    files["f"].content = bytes(2000, 'x');
    request(1, "f");
    transfer().block = 65535;
    take_sent();
    receive(numbered(4, 65535));
    receive(numbered(4, 0));
    EXPECT_EQ(answers(), lines{"DATA 0 512"});
}

TEST_F(tftp_test, sockets_of_ended_transfers_make_room_when_the_table_is_full) {
    files["f"].content = "x";
    for (int i = 0; i < 3; ++i) {
        request(1, "f");
        receive(numbered(4, 1));
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
    receive(numbered(3, 1, "another key"));
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

TEST_F(tftp_test, damaged_packets_do_no_harm_and_cost_no_memory) {
    tftp_enabled = false;
    descriptors_max = 20;
    expect_survives_damage(bytes("\0\2auth.txt\0octet\0", 17), [](bytes const& damaged) {
        on_tftp_packet(fd_tftp4, to_str(damaged), ip_port());
    });
    expect_survives_damage(numbered(3, 1, "username:"), [](bytes const& damaged) {
        if (tftp_ports.count == 0) {
            request(2, "auth.txt");
        }
        on_tftp_packet(tftp_ports.first()->value, to_str(damaged));
        log_records.clear();
        sent.clear();
    });
    EXPECT_FALSE(tftp_enabled);
}
