#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "device/ChannelSender.h"
#include "device/FaultPlayer.h"
#include "device/Feeds.h"
#include "exchange/BoardClock.h"
#include "exchange/Broadcast.h"
#include "exchange/Exchange.h"
#include "memory/BoardMemory.h"
#include "memory/CoreLock.h"
#include "memory/RegisterFile.h"

namespace ZceBoard {

// The board's own doing, beside the effects of the hosts' register accesses: it keeps its clock,
// learns the instrument broadcast, decodes the market data and hands each message to the channels
// whose bit is set in the instrument's mask. It knows the exchange only by what it gets from it. It
// never waits for a process that uses the board. One thread.
class CBoard {
  public:
    // The memory is the living board's and outlives this object. Without `feeds` both feeds are
    // received whatever the host programs.
    explicit CBoard(CBoardMemory& memory, const CFeeds& feeds = {});

    void SetTime(const BoardTime& time);

    // A packet of the broadcast: its names go into the tables, and with register 0x12 set it is
    // forwarded on channel 0. False if some process has the core lock just now: nothing was done.
    bool HearMapPacket(const MapPacket& packet, const std::vector<Instrument>& instruments);

    // Whether the board decodes anything: 0x11 is not 0 and the board is not held in reset.
    bool IsDecoding() const;
    // Looks which feeds arrive with what the host has programmed: before each batch of ticks.
    void NoticeFeeds() { m_received = m_feeds.Received(m_registers); }
    // A tick of the exchange: parsed if its feed arrives and is switched on, sent to the subscribed
    // channels.
    void HearTick(const CExchange& exchange, const Tick& tick, const BoardTime& time, Phase phase);
    // A whole message that the board is said to have decoded, for one channel, whatever is
    // subscribed. False while the channel's ring is full; what nobody is there to receive is gone.
    bool HearDecoded(uint32_t channel, const unsigned char* message, uint32_t size);
    // The same as a board that lives sends it: a full ring drops the message.
    void HearLive(uint32_t channel, const unsigned char* message, uint32_t size);
    // Learns these instruments, if some process does not have the core lock just now and the board
    // is not held in reset.
    void Learn(const std::vector<Instrument>& instruments);
    // Moves the parse counters by what was parsed since the last call; `open` says whether the
    // exchange is at work at this hour, else they stand still.
    void PublishCounters(bool open);

    // For the status line: empty, or " faults=" and those that are there.
    std::string FaultStatus() const { return m_faults.Any() ? " faults=" + m_faults.Text() : ""; }

    // Carries out the faults that are the board's own doing, once a pass; and, with the traffic,
    // the garbage, once a millisecond.
    void PlayFaults() { m_faultPlayer.Play(m_channels); }
    void PlayGarbage() { m_faultPlayer.PlayGarbage(m_channels); }

    // Begins to serve streams that were opened, takes what the hosts sent, and frees the streams of
    // holders that died.
    void NoticeOpenings();
    void DrainRequests();
    void FreeDeadHolders();
    // Puts right what only the board writes in its memory. Anybody can write there.
    void MendMemory();
    // Words that were put right, and faults that nobody had set.
    uint64_t Garbage() const { return m_mended + m_faultPlayer.Garbage(); }
    // Whether programs that start now find the board.
    bool CanBeFound() const { return m_memory.HasItsName(); }

    bool IsHeldInReset() const { return (m_registers.Peek(REG_RESET) & 1) != 0; }
    bool IsTransmittingMap() const { return (m_registers.Peek(REG_MAP_TRANSMIT) & 1) != 0; }
    uint32_t SwitchWord() const { return m_registers.Peek(REG_SWITCH); }
    uint32_t Resets() const { return m_shm.header.boardResets.load(std::memory_order_relaxed); }
    // Entries of a table with a name, and with a channel in their mask.
    size_t Learnt(uint32_t table) const;
    size_t Subscribed(uint32_t table) const;
    std::array<CChannelSender, CHANNELS>& Channels() { return m_channels; }
    uint64_t Requests() const { return m_requests; }
    uint64_t Parsed() const { return m_parsedTotal; }
    // For the status line: empty, or the feeds with a blank in front of each.
    std::string FeedStatus() const { return m_feeds.Status(m_registers); }
    std::array<FeedState, CFeeds::COUNT> FeedStates() const { return m_feeds.States(m_registers); }
    BoardShm& Shm() { return m_shm; }

  private:
    bool TryLock();
    void CountParsed(const unsigned char* message, uint32_t size);
    static std::array<CChannelSender, CHANNELS> MakeSenders(BoardShm& shm);

    CBoardMemory& m_memory;
    BoardShm& m_shm;
    CRegisterFile m_registers;
    CCoreLock m_lock;
    CFaults m_faults;
    CFaultPlayer m_faultPlayer;
    CFeeds m_feeds;
    uint32_t m_received = SWITCH_L1 | SWITCH_L5;
    std::array<CChannelSender, CHANNELS> m_channels;
    std::array<CRingConsumer, CHANNELS> m_requestRings;
    std::array<uint32_t, COUNTERS_PER_GROUP> m_parsed{};
    uint64_t m_parsedTotal = 0;
    uint64_t m_requests = 0;
    uint64_t m_mended = 0;
};

}  // namespace ZceBoard
