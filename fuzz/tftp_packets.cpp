// TFTP requests, and the packets of the transfers that they begin. Kinds of a step:
//   0 a packet to the listening sockets   1 a packet to a transfer   2 its next block, or the
//   acknowledgement that it waits for   3 a whole upload of credentials   4 the settings file
//   5 a file to be read   6 access on or off   7 a call fails, or all are good again
#include "fuzz/fuzz.h"

#include "config/setting_container.h"
#include "config/settings.h"
#include "tftp/tftp.h"

using namespace sim;

namespace {

tftp_result* transfer(unsigned int n) {
    auto* each = tftp_ports.first();
    for (; each && n > 0 && tftp_ports.next(each); --n) {
        each = tftp_ports.next(each);
    }
    return each ? &each->value : nullptr;
}

void request(bytes const& packet, unsigned int from) {
    static char const* const peers[] = {"192.0.2.1", "192.0.2.2", "2001:db8::1", "fe80::1"};
    datagram_arrives(69, packet, peers[from % 4]);
    run_for(0);
}

void receive(tftp_result const* transfer, bytes const& packet) {
    if (transfer) {
        datagram_arrives_at(transfer->socket, packet);
    }
}

// Variant 1: a full block.
void go_on(tftp_result const* transfer, fuzz::step const& each) {
    if (transfer && transfer->outgoing.empty() && transfer->last_packet.empty()) {
        bytes const block = each.variant & 1 ? each.data + bytes(512, 'x') : each.data;
        receive(transfer, hex("0003") + big_endian(transfer->block + 1, 2) + block.substr(0, 512));
    } else if (transfer) {
        receive(transfer, hex("0004") + big_endian(transfer->block, 2));
    }
}

}  // namespace

void fuzz::begin() {
    files["settings.xml"].content = "present";
    files["f"].content = bytes(1200, 'f');
    files["pipe"] = {"x", file::pipe};
    settings.init();
    http_username1 = "admin";
    http_password1 = "bluefern";
    tftp_enabled = true;
    init_tftp();
}

void fuzz::take(step const& each) {
    bytes const& data = each.data;
    switch (each.kind) {
    case 0: request(data, each.variant); break;
    case 1: receive(transfer(each.variant), data); break;
    case 2: go_on(transfer(number(data, 0) % 4), each); break;
    case 3:
        request(hex("0002") + bytes("auth.txt\0octet\0", 15), each.variant);
        if (tftp_ports.count > 0) {
            receive(transfer(unsigned(tftp_ports.count) - 1),
                    hex("00030001") + data.substr(0, 512));
        }
        break;
    case 4: files["settings.xml"].content = data; break;
    case 5: files["f"].content = data + bytes(each.variant * 512UL, 'f'); break;
    case 6: tftp_enabled = each.variant & 1; break;
    default:
        nv_is_apart = each.variant & 1;
        each.variant & 2 ? repair() : fail_some_call(data);
        break;
    }
}
