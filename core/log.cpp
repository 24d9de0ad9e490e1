#include "core/log.h"

#include "lib/descriptors.h"
#include "lib/utils.h"

#include <fcntl.h>
#include <unistd.h>

constinit int log_level = 9;
str log_pipe_path("net2app");
constinit int log_fd = -1;

namespace {

enum log_item_type { item_record = 0, item_text = 1, item_extra = 2 };
constexpr unsigned int kind_log_message = 2;

str log_item(log_item_type type, str const& value) {
    return utils::int2str(type, 2) + utils::int2str(unsigned(value.length()), 2) + value;
}

}  // namespace

void log_add_message(int level, str const& text, str const& extra) {
    if (log_fd < 0) {
        str path = log_pipe_path;
        // Read-write and non-blocking: neither opening nor a full pipe ever waits for the reader.
        log_fd = descriptors::open_file(path.c_str(), O_RDWR | O_NONBLOCK);
        if (log_fd < 0) {
            return;
        }
    }
    str payload = utils::int2str(kind_log_message, 4) + utils::int2str(unsigned(level), 2);
    payload += log_item(item_text, text);
    if (!extra.empty()) {
        payload += log_item(item_extra, extra);
    }
    str const record = log_item(item_record, payload);
    (void)!write(log_fd, record.cbuffer(), size_t(record.length()));  // A full pipe drops it.
}
