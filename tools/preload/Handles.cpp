#include "preload/Handles.h"

#include <algorithm>

namespace ZcePreload {

namespace {

constexpr uint32_t MAX_BUS = BUS_UNKNOWN - 1;

uint16_t BusOf(const std::map<const void*, uint16_t>& buses, const void* handle) {
    const auto found = buses.find(handle);
    return found != buses.end() ? found->second : BUS_UNKNOWN;
}

}  // namespace

void CHandles::FilterIndex(const void* filter, uint32_t index) {
    std::optional<uint16_t>& bus = m_filters[filter].bus;
    bus.reset();
    if (index <= MAX_BUS) {
        bus = static_cast<uint16_t>(index);
    }
}

void CHandles::FilterName(const void* filter, const std::string& name) {
    m_filters[filter].channel = ChannelOf(name);
}

void CHandles::FilterGone(const void* filter) {
    m_filters.erase(filter);
}

void CHandles::AcceleratorFound(const void* descriptor, const void* filter) {
    const auto found = m_filters.find(filter);
    if (found != m_filters.end() && found->second.bus) {
        m_acceleratorDescriptors[descriptor] = *found->second.bus;
    } else {
        m_acceleratorDescriptors.erase(descriptor);
    }
}

void CHandles::AcceleratorDescriptorGone(const void* descriptor) {
    m_acceleratorDescriptors.erase(descriptor);
}

void CHandles::AcceleratorOpened(const void* accelerator, const void* descriptor) {
    m_accelerators[accelerator] = BusOf(m_acceleratorDescriptors, descriptor);
}

void CHandles::StreamFound(const void* descriptor, const void* accelerator, const void* filter) {
    const auto found = m_filters.find(filter);
    if (found != m_filters.end() && found->second.channel) {
        m_streamDescriptors[descriptor] = {BusOf(m_accelerators, accelerator),
                                           *found->second.channel};
    } else {
        m_streamDescriptors.erase(descriptor);
    }
}

void CHandles::StreamDescriptorGone(const void* descriptor) {
    m_streamDescriptors.erase(descriptor);
}

std::optional<CHandles::Stream> CHandles::StreamOf(const void* descriptor) const {
    const auto found = m_streamDescriptors.find(descriptor);
    if (found == m_streamDescriptors.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::optional<uint16_t> CHandles::ChannelOf(const std::string& name) {
    const std::string before = "CUSTOM_CHAN";
    const std::string behind = "_DATA";
    if (name.size() <= before.size() + behind.size() || name.rfind(before, 0) != 0 ||
        name.substr(name.size() - behind.size()) != behind) {
        return std::nullopt;
    }
    const std::string digits =
        name.substr(before.size(), name.size() - before.size() - behind.size());
    if (digits.size() > 4 ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return std::nullopt;
    }
    return static_cast<uint16_t>(std::stoul(digits));
}

}  // namespace ZcePreload
