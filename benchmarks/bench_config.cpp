#include "benchmarks/measure.h"
#include "config/config_file.h"
#include "config/setting_container.h"
#include "lib/str_format.h"

namespace {

str settings_file(int elements) {
    str file("<?xml version=\"1.0\"?>\r\n<settings>\r\n <phone-settings>\r\n");
    for (int i = 0; i < elements; ++i) {
        file +=
            str::sprintf("  <dns_server%d perm=\"RW\">10.100.0.%d &amp; more</dns_server%d>\r\n",
                         i % 6, i % 250, i % 6);
    }
    file += " </phone-settings>\r\n</settings>\r\n";
    return file;
}

void parse_settings(benchmark::State& state) {
    settings.init();
    str const file = settings_file(int(state.range(0)));
    allocation_meter const meter(state);
    for (auto _ : state) {
        process_config_file(file);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(parse_settings)->Name("settings file/process_config_file")->Arg(20)->Arg(10000);

}  // namespace
