#include "relay-tool/Feed.h"

#include <fmt/format.h>
#include <iniparser.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <string_view>

#include "ZceBoardMsg.h"

namespace ZceRelay {

namespace {

template <class Number>
bool ReadNumber(std::string_view text, Number& number) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

}  // namespace

BodySizes BoardBodySizes() {
    BodySizes sizes{};
    for (uint32_t k = 0; k < TYPES; ++k) {
        sizes[k] = ZceBoardBodySize(FIRST_TYPE + k);
    }
    return sizes;
}

bool TakeBodySize(const std::string& text, BodySizes& sizes) {
    const size_t equals = text.find('=');
    uint32_t type = 0;
    uint32_t size = 0;
    if (equals == std::string::npos || !ReadNumber(text.substr(0, equals), type) ||
        !ReadNumber(text.substr(equals + 1), size) || type < FIRST_TYPE ||
        type >= FIRST_TYPE + TYPES || size == 0 || size > LARGEST_BODY) {
        return false;
    }
    sizes[type - FIRST_TYPE] = size;
    return true;
}

std::optional<Device> DeviceOf(const std::string& config, std::string& error) {
    if (access(config.c_str(), R_OK) != 0) {
        error = fmt::format("{}: {}", config, strerror(errno));
        return std::nullopt;
    }
    const std::unique_ptr<dictionary, decltype(&iniparser_freedict)> ini(
        iniparser_load(config.c_str()), iniparser_freedict);
    const std::string text =
        ini != nullptr ? iniparser_getstring(ini.get(), "config:device", "") : "";
    constexpr std::string_view board = "xilinx";
    const size_t colon = text.find(':');
    Device device;
    if (!text.starts_with(board) || colon == std::string::npos ||
        !ReadNumber(std::string_view(text).substr(board.size(), colon - board.size()),
                    device.bus) ||
        !ReadNumber(std::string_view(text).substr(colon + 1), device.channel) ||
        device.channel >= CHANNELS) {
        error = fmt::format(
            "{}: [config] device = {}: a board and a channel are needed, like "
            "xilinx0:3",
            config, text);
        return std::nullopt;
    }
    return device;
}

}  // namespace ZceRelay
