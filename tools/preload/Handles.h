#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace ZcePreload {

constexpr uint16_t BUS_UNKNOWN = 0xFFFF;

// Which stream is behind a handle of the vendor's library: follows filters and descriptors from the
// calls that made them. A handle stands for the address that the library gave. Under a lock of its
// caller's; an address that is given back is forgotten before it can come again.
class CHandles {
  public:
    struct Stream {
        uint16_t bus;  // BUS_UNKNOWN: its accelerator was not looked for by its index
        uint16_t channel;
    };

    void FilterIndex(const void* filter, uint32_t index);
    void FilterName(const void* filter, const std::string& name);
    void FilterGone(const void* filter);
    void AcceleratorFound(const void* descriptor, const void* filter);
    void AcceleratorDescriptorGone(const void* descriptor);
    void AcceleratorOpened(const void* accelerator, const void* descriptor);
    void StreamFound(const void* descriptor, const void* accelerator, const void* filter);
    void StreamDescriptorGone(const void* descriptor);
    // Empty: not a stream that was looked for by the name of a channel.
    std::optional<Stream> StreamOf(const void* descriptor) const;

  private:
    // The channel of a stream named CUSTOM_CHAN<n>_DATA.
    static std::optional<uint16_t> ChannelOf(const std::string& name);

    struct Filter {
        std::optional<uint16_t> bus;
        std::optional<uint16_t> channel;
    };
    std::map<const void*, Filter> m_filters;
    std::map<const void*, uint16_t> m_acceleratorDescriptors;  // to the bus
    std::map<const void*, uint16_t> m_accelerators;
    std::map<const void*, Stream> m_streamDescriptors;
};

}  // namespace ZcePreload
