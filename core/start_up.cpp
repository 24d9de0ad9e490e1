#include "core/start_up.h"

#include "config/setting_container.h"
#include "config/settings.h"
#include "core/device_paths.h"
#include "core/link_monitor.h"
#include "core/log.h"
#include "core/timestamp.h"
#include "lib/descriptors.h"
#include "lib/utils.h"
#include "lldp/lldp.h"
#include "ntp/ntp_client.h"
#include "tftp/tftp.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <unistd.h>

constinit bool daemon_mode = true;

void parse_command_line(int argc, char const* const* argv) {
    for (int i = 1; i < argc; i += 2) {
        str const option(argv[i]);
        bool const is_log = option == "--log";
        if (i + 1 == argc || !(is_log || option == "--pipe")) {
            exit(1);
        }
        str const value(argv[i + 1]);
        if (is_log) {
            log_level = value.value();
            daemon_mode = false;
        } else {
            log_pipe_path = value;
        }
    }
}

namespace {

void close_standard_descriptors() {
    for (int fd = 0; fd <= 2; ++fd) {
        close(fd);
    }
}

// Devices that start together must draw different transaction ids.
void seed_random_numbers() {
    unsigned int entropy = 0;
    int fd = descriptors::open_file(path_random, O_RDONLY);
    (void)!read(fd, &entropy, sizeof entropy);  // If it fails, the MAC address alone has to do.
    descriptors::close(fd);
    unsigned int const mac = utils::str2ulong(utils::hex2bin(mac_addr), 2);
    srand(entropy ^ mac ^ static_cast<unsigned int>(rtimestamp::now().ticks / 10000000));
}

// Makes sure that the next boot starts the telephony application. A script that could not be
// replaced must not restart the device: it would do so for ever.
void check_start_script() {
    str const script = str::read_file(path_start_script);
    if (script.empty() || script.find("ata-app") >= 0 ||
        !(script + "./ata-app&\n").replace_file(path_start_script)) {
        return;
    }
    sync();  // Where the partition is in use it cannot be unmounted.
    sleep(1);
    umount(mount_point_nv);
    sleep(3);
    reboot(RB_AUTOBOOT);
}

}  // namespace

void start_up() {
    if (daemon_mode) {
        close_standard_descriptors();
    }
    (void)str("1").write_file(path_bindv6only);
    signal(SIGPIPE, SIG_IGN);
    init_timestamps();
    mac_addr = utils::get_mac_addr();
    seed_random_numbers();
    init_ntp();
    settings.init();
    init_tftp();
    check_start_script();
    lldp::clients.find_or_insert(wired_interface).start(wired_interface);
    link_monitor(wired_interface);
}
