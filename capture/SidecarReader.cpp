#include "capture/SidecarReader.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "capture/FileHash.h"

namespace ZceCapture {

namespace {

using Json = nlohmann::json;
using Verdict = SidecarCheck::Verdict;

constexpr size_t LARGEST_SIDECAR = size_t{16} << 20;
constexpr size_t PIECE_BYTES = size_t{1} << 20;

// Opened for reading, without waiting for the writer of a pipe; only a regular file.
class CReadFile {
  public:
    explicit CReadFile(const std::string& path)
        : m_fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        struct stat status {};
        if (m_fd < 0 || fstat(m_fd, &status) != 0) {
            m_errno = errno;
        } else if (!S_ISREG(status.st_mode)) {
            m_notRegular = true;
        } else {
            m_size = static_cast<uint64_t>(status.st_size);
        }
    }
    ~CReadFile() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    CReadFile(const CReadFile&) = delete;
    CReadFile& operator=(const CReadFile&) = delete;

    // Why nothing can be read; empty: it can.
    std::string Fault() const {
        if (m_notRegular) {
            return "not a regular file";
        }
        return m_errno != 0 ? std::strerror(m_errno) : "";
    }
    bool IsAbsent() const { return m_errno == ENOENT; }
    uint64_t Size() const { return m_size; }
    // A recorder locks its file.
    bool IsLocked() const {
        if (flock(m_fd, LOCK_SH | LOCK_NB) != 0) {
            return errno == EWOULDBLOCK;
        }
        flock(m_fd, LOCK_UN);
        return false;
    }
    // Gives the file piece by piece to `take`; false with errno in Fault().
    template <class Take>
    bool ReadAll(Take take) {
        std::vector<char> piece(PIECE_BYTES);
        for (;;) {
            const ssize_t size = read(m_fd, piece.data(), piece.size());
            if (size == 0) {
                return true;
            }
            if (size < 0 && errno != EINTR) {
                m_errno = errno;
                return false;
            }
            if (size > 0) {
                take(piece.data(), static_cast<size_t>(size));
            }
        }
    }

  private:
    int m_fd;
    int m_errno = 0;
    bool m_notRegular = false;
    uint64_t m_size = 0;
};

bool ReadState(const std::string& name, Sidecar::State& state) {
    if (name == "writing") {
        state = Sidecar::State::Writing;
    } else if (name == "complete") {
        state = Sidecar::State::Complete;
    } else if (name == "stopped") {
        state = Sidecar::State::Stopped;
    } else {
        return false;
    }
    return true;
}

// An integer that the field can hold; throws if there is none.
template <class Integer>
void Take(const Json& json, const char* name, Integer& value) {
    const Json& found = json.at(name);
    bool fits = false;
    if (found.is_number_unsigned()) {
        fits = found.get<uint64_t>() <= static_cast<uint64_t>(std::numeric_limits<Integer>::max());
    } else if (found.is_number_integer()) {  // below 0
        fits = std::is_same_v<Integer, int64_t>;
    }
    if (!fits) {
        throw std::out_of_range(fmt::format("\"{}\" is not a number of its range", name));
    }
    value = found.get<Integer>();
}

void Take(const Json& json, const char* name, std::string& value) {
    json.at(name).get_to(value);
}

void TakeAll(const Json& json, Sidecar& sidecar) {
    Take(json, "file", sidecar.file);
    Take(json, "ended", sidecar.ended);
    Take(json, "compression", sidecar.compression);
    Take(json, "bytes", sidecar.bytes);
    Take(json, "uncompressed_bytes", sidecar.uncompressedBytes);
    Take(json, "xxh128", sidecar.xxh128);
    Take(json, "messages", sidecar.messages);
    Take(json, "lost", sidecar.lost);
    Take(json, "first_time_ns", sidecar.firstTimeNs);
    Take(json, "last_time_ns", sidecar.lastTimeNs);
    Take(json, "number", sidecar.number);
    Take(json, "previous", sidecar.previous);
    Take(json, "next", sidecar.next);
    for (const Json& one : json.at("streams")) {
        Sidecar::Stream stream;
        Take(one, "bus", stream.bus);
        Take(one, "channel", stream.channel);
        Take(one, "opening", stream.opening);
        Take(one, "messages", stream.messages);
        Take(one, "lost", stream.lost);
        Take(one, "first", stream.first);
        Take(one, "last", stream.last);
        sidecar.streams.push_back(stream);
    }
}

// What is wrong with the text; empty if it is a sidecar.
std::string Parse(const std::string& text, Sidecar& sidecar) {
    try {
        const Json json = Json::parse(text);
        int64_t version = 0;
        Take(json, "zce_capture", version);
        if (version != Sidecar::VERSION) {
            return fmt::format("version {}, expected {}", version, +Sidecar::VERSION);
        }
        std::string state;
        Take(json, "state", state);
        if (!ReadState(state, sidecar.state)) {
            return fmt::format("state \"{}\", expected writing, complete or stopped", state);
        }
        TakeAll(json, sidecar);
        return "";
    } catch (const std::exception& reason) {
        return std::string("not the JSON of a sidecar: ") + reason.what();
    }
}

SidecarCheck::Verdict CompareBytes(CReadFile& file, const Sidecar& sidecar, std::string& text) {
    if (file.Size() != sidecar.bytes) {
        text = fmt::format("{} bytes; the recorder wrote {}", file.Size(), sidecar.bytes);
        return file.Size() < sidecar.bytes ? Verdict::Cut : Verdict::Changed;
    }
    CFileHash hash;
    if (!file.ReadAll([&hash](const char* data, size_t size) { hash.Add(data, size); })) {
        text = file.Fault();
        return Verdict::Unreadable;
    }
    const std::string found = hash.Text();
    if (found != sidecar.xxh128) {
        text = fmt::format("its bytes were changed: XXH128 {}, expected {}", found, sidecar.xxh128);
        return Verdict::Changed;
    }
    text = fmt::format("{} bytes as they were written", sidecar.bytes);
    if (sidecar.state == Sidecar::State::Stopped) {
        text += fmt::format("; the recording stopped: {}", sidecar.ended);
    }
    return Verdict::Good;
}

Verdict Compare(const std::string& capture, Sidecar& sidecar, std::string& text) {
    CReadFile file(capture);
    text = file.Fault();
    if (!text.empty()) {
        return Verdict::Unreadable;
    }
    if (CReadFile(SidecarPath(capture)).IsAbsent()) {
        text = fmt::format("no sidecar {}", SidecarPath(capture));
        return Verdict::Absent;
    }
    std::string error;
    if (!ReadSidecar(capture, sidecar, error)) {
        text = "its sidecar " + error;
        return Verdict::Unreadable;
    }
    if (sidecar.state != Sidecar::State::Writing) {
        return CompareBytes(file, sidecar, text);
    }
    if (file.IsLocked()) {
        text = "it is being written";
        return Verdict::BeingWritten;
    }
    text = "its recording was interrupted: the end is missing";
    return Verdict::Interrupted;
}

}  // namespace

bool ReadSidecar(const std::string& capture, Sidecar& sidecar, std::string& error) {
    const std::string path = SidecarPath(capture);
    sidecar = Sidecar();
    CReadFile file(path);
    std::string text;
    error = file.Fault();
    if (error.empty() && file.Size() > LARGEST_SIDECAR) {
        error = fmt::format("{} bytes are too many for a sidecar", file.Size());
    }
    if (error.empty() && !file.ReadAll([&text](const char* data, size_t size) {
            text.append(data, std::min(size, LARGEST_SIDECAR - text.size()));
        })) {
        error = file.Fault();
    }
    if (error.empty()) {
        error = Parse(text, sidecar);
    }
    if (!error.empty()) {
        error = path + ": " + error;
    }
    return error.empty();
}

SidecarCheck CheckSidecar(const std::string& capture) {
    SidecarCheck check;
    std::string text;
    check.verdict = Compare(capture, check.sidecar, text);
    check.text = capture + ": " + text;
    return check;
}

}  // namespace ZceCapture
