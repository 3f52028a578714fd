#include <gtest/gtest.h>
#include <stdio.h>  // NOLINT(modernize-deprecated-headers): popen

#include <set>
#include <sstream>
#include <string>

namespace {

std::string OutputOf(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");  // NOLINT: the build's own file names
    if (pipe == nullptr) {
        return output;
    }
    char buffer[512];
    while (fgets(buffer, sizeof(buffer), pipe) != nullptr) {
        output += buffer;
    }
    pclose(pipe);
    return output;
}

TEST(LibraryExports, AreTheCallsOfTheInterfaceAndNothingElse) {
    const std::set<std::string> expected = {
        "enyx_hw_a2c_stream_create",
        "enyx_hw_a2c_stream_destroy",
        "enyx_hw_a2c_stream_get_mtu",
        "enyx_hw_a2c_stream_poll_once",
        "enyx_hw_a2c_stream_stats_get_backpressure",
        "enyx_hw_a2c_stream_stats_get_errors",
        "enyx_hw_a2c_stream_stats_get_fifo_errors",
        "enyx_hw_a2c_stream_stats_get_packet_count",
        "enyx_hw_accelerator_enumerate_a2c_streams",
        "enyx_hw_accelerator_enumerate_c2a_streams",
        "enyx_hw_accelerator_enumerate_mmios",
        "enyx_hw_accelerator_get",
        "enyx_hw_c2a_stream_create",
        "enyx_hw_c2a_stream_destroy",
        "enyx_hw_c2a_stream_get_mtu",
        "enyx_hw_c2a_stream_send",
        "enyx_hw_core_enumerate",
        "enyx_hw_core_lock",
        "enyx_hw_core_reset",
        "enyx_hw_core_tree_get_root",
        "enyx_hw_core_unlock",
        "enyx_hw_enumerate_accelerators",
        "enyx_hw_enumerate_cores",
        "enyx_hw_filter_create",
        "enyx_hw_filter_destroy",
        "enyx_hw_filter_set_index",
        "enyx_hw_filter_set_name",
        "enyx_hw_free_a2c_stream_descriptors",
        "enyx_hw_free_accelerator_descriptors",
        "enyx_hw_free_c2a_stream_descriptors",
        "enyx_hw_free_mmio_descriptors",
        "enyx_hw_mmio_create",
        "enyx_hw_mmio_destroy",
        "enyx_hw_read",
        "enyx_hw_write",
        "zce_board_state",
    };
    std::istringstream lines(OutputOf("nm -D --defined-only " ENYX_HW_FILE));
    std::set<std::string> exported;
    std::string address;
    std::string kind;
    std::string name;
    while (lines >> address >> kind >> name) {
        exported.insert(name);
    }
    EXPECT_EQ(exported, expected);
}

TEST(LibraryExports, ItsNameIsTheVendorsAndItNeedsTheRuntimeOnly) {
    std::istringstream lines(OutputOf("readelf -d " ENYX_HW_FILE));
    std::set<std::string> needed;
    std::string soname;
    std::string line;
    while (std::getline(lines, line)) {
        const size_t open = line.find('[');
        if (open == std::string::npos) {
            continue;
        }
        const std::string value = line.substr(open + 1, line.find(']') - open - 1);
        if (line.find("(NEEDED)") != std::string::npos) {
            needed.insert(value);
        } else if (line.find("(SONAME)") != std::string::npos) {
            soname = value;
        }
    }
    EXPECT_EQ(soname, "libenyx-hw-c.so.5");
    // What sanitizers bring along is not the library's.
    for (auto it = needed.begin(); it != needed.end();) {
        it = it->find("san.so") != std::string::npos ? needed.erase(it) : std::next(it);
    }
    for (const char* runtime :
         {"libstdc++.so.6", "libgcc_s.so.1", "libc.so.6", "libm.so.6", "ld-linux-x86-64.so.2"}) {
        needed.erase(runtime);
    }
    EXPECT_TRUE(needed.empty()) << *needed.begin();
}

}  // namespace
