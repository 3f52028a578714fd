#pragma once

#include <array>

#include "device/ChannelSender.h"
#include "device/Garbage.h"
#include "memory/Faults.h"
#include "memory/ShmLayout.h"

namespace ZceBoard {

// Carries out the faults that are the board's process's own doing and have no better place: the
// link's state, slow readers, garbage on the streams, and the process's end. One thread.
class CFaultPlayer {
  public:
    explicit CFaultPlayer(BoardShm& shm) : m_shm(shm), m_faults(shm) {}

    // Once a pass of the board: all but the garbage.
    void Play(std::array<CChannelSender, CHANNELS>& channels);
    // Once a millisecond of traffic.
    void PlayGarbage(std::array<CChannelSender, CHANNELS>& channels);

    // Puts the link status right, should something have been written over it.
    void SetLink();
    // Faults that nobody had set, and which were dropped.
    uint64_t Garbage() const { return m_garbageWords; }

  private:
    void LimitRooms(std::array<CChannelSender, CHANNELS>& channels);

    BoardShm& m_shm;
    CFaults m_faults;
    CGarbage m_garbage{1};
    uint32_t m_suspects = 0;
    uint64_t m_garbageWords = 0;
    bool m_bPlayed = false;  // there were faults at the last pass: something may have to go back
};

}  // namespace ZceBoard
