#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tempDir.h"
#include "watch/PageFile.h"
#include "watch/ProcessLife.h"
#include "watch/WatchReader.h"
#include "wholeFile.h"

// A directory of pages: real ones of this process, and images of others.
namespace velatest {

inline int NoCounter(enyx_hw_a2c_stream* /*stream*/, uint32_t* value) {
    *value = 7;
    return 0;
}

inline ZceWatch::VendorCalls CallsOfNothing() {
    return {nullptr, NoCounter, NoCounter, NoCounter, NoCounter, nullptr};
}

class WatchedPage : public testing::Test {
  protected:
    std::string Name(pid_t pid = getpid()) const {
        return m_directory / (ZceWatch::ProgramName() + "-" + std::to_string(pid) + ".watch");
    }
    static constexpr ZceWatch::TickClock nsClock{ZceWatch::TickSource::Monotonic, 1'000'000'000};

    void Open(ZceWatch::CPageFile& page) const {
        std::string error;
        ASSERT_TRUE(page.Open(m_directory.path(), nsClock, error)) << error;
    }
    // A page of this process as a file says it.
    static std::unique_ptr<ZceWatch::Page> Image() {
        auto page = std::make_unique<ZceWatch::Page>();
        page->magic = {'Z', 'C', 'E', 'W', 'A', 'T', 'C', 'H'};
        page->version = 1;
        page->size = sizeof(ZceWatch::Page);
        page->entrySize = 512;
        page->entryCapacity = 64;
        page->pid = static_cast<uint64_t>(getpid());
        page->processStart = ZceWatch::ProcessStart(page->pid).value_or(0);
        page->beginNs = 5;
        page->tickSource = 2;
        page->ticksPerSecond = 1'000'000'000;
        std::strcpy(page->program.data(), "app");  // NOLINT(clang-analyzer-security*): fits
        page->state = 1;
        return page;
    }
    std::string Put(const std::string& name, const ZceWatch::Page& page,
                    size_t size = sizeof(ZceWatch::Page)) const {
        PutFile(m_directory / name,
                {reinterpret_cast<const char*>(&page), std::min(size, sizeof(ZceWatch::Page))});
        return m_directory / name;
    }
    static std::string Refusal(const std::string& path) {
        ZceWatch::Process process;
        std::string error;
        EXPECT_FALSE(ZceWatch::ReadPage(path, process, error));
        return error;
    }
    static ZceWatch::Process Read(const std::string& path) {
        ZceWatch::Process process;
        std::string error;
        EXPECT_TRUE(ZceWatch::ReadPage(path, process, error)) << error;
        return process;
    }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& file : std::filesystem::directory_iterator(m_directory.path())) {
            names.push_back(file.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    TempDir m_directory;
};

// Makes a page in a child that ends so. Returns the child's pid.
template <class Body>
pid_t InChild(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return child;
}

}  // namespace velatest
