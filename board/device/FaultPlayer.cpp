#include "device/FaultPlayer.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <vector>

namespace ZceBoard {

void CFaultPlayer::Play(std::array<CChannelSender, CHANNELS>& channels) {
    const bool any = m_faults.Any();
    if (any) {
        m_garbageWords += m_faults.DropGarbage(m_suspects);
    }
    if (!any && !m_bPlayed) {
        return;
    }
    m_bPlayed = any;
    if (m_faults.IsOn(Fault::Crash)) {
        kill(getpid(), SIGKILL);
    }
    SetLink();
    LimitRooms(channels);
}

void CFaultPlayer::SetLink() {
    const uint32_t link =
        m_faults.IsOn(Fault::LinkDown) ? m_faults.ValueOf(Fault::LinkDown) : LINK_ALL_CONNECTED;
    m_shm.registers[REG_LINK_STATUS].store(link, std::memory_order_relaxed);
}

void CFaultPlayer::LimitRooms(std::array<CChannelSender, CHANNELS>& channels) {
    for (CChannelSender& channel : channels) {
        channel.LimitRoom(m_faults.IsOn(Fault::SlowReader, channel.Channel())
                              ? m_faults.ValueOf(Fault::SlowReader)
                              : CChannelSender::ALL_ROOM);
    }
}

// A millisecond in which no channel would get it is no occasion.
void CFaultPlayer::PlayGarbage(std::array<CChannelSender, CHANNELS>& channels) {
    if (!m_faults.Any()) {
        return;
    }
    std::array<CChannelSender*, CHANNELS> open{};
    size_t count = 0;
    for (CChannelSender& channel : channels) {
        if (m_faults.IsOn(Fault::Garbage, channel.Channel()) && channel.IsOpen()) {
            open[count++] = &channel;
        }
    }
    if (count == 0 || m_faults.Strikes(Fault::Garbage) == 0) {
        return;
    }
    const std::vector<unsigned char>& message = m_garbage.Next();
    std::for_each_n(open.begin(), count, [&message](CChannelSender* channel) {
        channel->SendGarbage(message.data(), static_cast<uint32_t>(message.size()));
    });
}

}  // namespace ZceBoard
