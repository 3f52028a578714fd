#include "DataType/ZceSubsMasks.h"

namespace Vela2_U50 {

namespace {

constexpr std::string_view g_strPrefixSpd = "SPD-";
constexpr std::string_view g_strPrefixIps = "IPS-";

std::uint16_t Joined(unsigned int mask, unsigned int more) {
    return static_cast<std::uint16_t>(mask | more);
}

template <typename Masks>
void Add(Masks& masks, std::string_view text, unsigned int bit) {
    std::uint16_t& mask = masks[text];
    mask = Joined(mask, bit);
}

template <typename Masks>
std::uint16_t Find(const Masks& masks, std::string_view text) {
    const auto found = masks.find(text);
    return found == masks.end() ? std::uint16_t{0} : found->second;
}

}  // namespace

InstKind_t KindOfInst(std::string_view name) {
    if (name.starts_with(g_strPrefixSpd)) {
        return InstKind_t::spd;
    }
    return name.starts_with(g_strPrefixIps) ? InstKind_t::ips : InstKind_t::single;
}

CZceSubsMasks::CZceSubsMasks(const ZceSubsInfoArray_t& rules) {
    for (unsigned int channel = 0; channel < ZCE_CHANNEL_NUM; ++channel) {
        const ZceSubsInfo_t& of = rules[channel];
        const unsigned int bit = 1U << channel;
        for (const std::string& id : of.vecSubIds) {
            Add(m_ids, id, bit);
        }
        for (const std::string& cls : of.vecSubClasses) {
            Add(m_classes, cls, bit);
        }
        m_usAll = Joined(m_usAll, of.bSubAll != 0 ? bit : 0);
        m_usOptions = Joined(m_usOptions, of.bOptionsRecv != 0 ? bit : 0);
        m_usIps = Joined(m_usIps, of.bIpsRecv != 0 ? bit : 0);
        m_usSpd = Joined(m_usSpd, of.bSpdRecv != 0 ? bit : 0);
    }
}

std::uint16_t CZceSubsMasks::Of(std::string_view name) const {
    switch (KindOfInst(name)) {
        case InstKind_t::spd:
            return m_usSpd;
        case InstKind_t::ips:
            return m_usIps;
        case InstKind_t::single:
            break;
    }
    return OfSingle(name);
}

// Options are matched by class or by underlying contract, never by their own id. Deliberate.
std::uint16_t CZceSubsMasks::OfSingle(std::string_view name) const {
    const std::string_view::size_type letter = FindOptionLetter(name);
    const std::string_view contract = name.substr(0, letter);
    const std::uint16_t wanted =
        Joined(m_usAll, Joined(Find(m_classes, ClassIn(name)), Find(m_ids, contract)));
    return letter == std::string_view::npos ? wanted
                                            : static_cast<std::uint16_t>(wanted & m_usOptions);
}

}  // namespace Vela2_U50
