#include "capture/Sidecar.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "capture/OutputFile.h"

namespace ZceCapture {

namespace {

const char* StateName(Sidecar::State state) {
    switch (state) {
        case Sidecar::State::Writing:
            return "writing";
        case Sidecar::State::Complete:
            return "complete";
        case Sidecar::State::Stopped:
            return "stopped";
    }
    return "";
}

// The bytes of the character at `at`, 0 if it is not one of UTF-8.
size_t CharacterAt(const std::string& text, size_t at) {
    const auto byte = [&text](size_t k) -> unsigned int {
        return k < text.size() ? static_cast<unsigned char>(text[k]) : 0;
    };
    const unsigned int lead = byte(at);
    if (lead < 0x80) {
        return 1;
    }
    const size_t size = lead >= 0xC2 && lead <= 0xDF   ? 2
                        : lead >= 0xE0 && lead <= 0xEF ? 3
                        : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                       : 0;
    for (size_t k = 1; k < size; ++k) {
        if ((byte(at + k) & 0xC0) != 0x80) {
            return 0;
        }
    }
    // Characters written longer than they need be, halves of pairs, and beyond the last one.
    const unsigned int second = byte(at + 1);
    const bool wrong = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
                       (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
    return wrong ? 0 : size;
}

// A file's name may hold any bytes: those that are no text become question marks.
std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (size_t at = 0; at < text.size();) {
        const size_t size = CharacterAt(text, at);
        const char first = text[at];
        if (size == 0) {
            quoted += '?';
        } else if (first == '"' || first == '\\') {
            quoted += {'\\', first};
        } else if (static_cast<unsigned char>(first) < ' ') {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x",
                          static_cast<unsigned int>(first));
            quoted += escape.data();
        } else {
            quoted.append(text, at, size);
        }
        at += size == 0 ? 1 : size;
    }
    return quoted + '"';
}

class CLines {
  public:
    void Add(const char* name, const std::string& value) {
        m_text += (m_text.empty() ? "" : ",\n") + ("  \"" + std::string(name) + "\": " + value);
    }
    template <class Integer>
    void Add(const char* name, Integer value) {
        Add(name, std::to_string(value));
    }
    const std::string& Text() const { return m_text; }

  private:
    std::string m_text;
};

std::string StreamsText(const std::vector<Sidecar::Stream>& streams) {
    std::string text;
    for (const Sidecar::Stream& stream : streams) {
        text += std::string(text.empty() ? "" : ",") +
                "\n    {\"bus\": " + std::to_string(stream.bus) +
                ", \"channel\": " + std::to_string(stream.channel) +
                ", \"opening\": " + std::to_string(stream.opening) +
                ", \"messages\": " + std::to_string(stream.messages) +
                ", \"lost\": " + std::to_string(stream.lost) +
                ", \"first\": " + std::to_string(stream.first) +
                ", \"last\": " + std::to_string(stream.last) + "}";
    }
    return "[" + text + "]";
}

}  // namespace

std::string SidecarPath(const std::string& capture) {
    return capture + ".json";
}

std::string SidecarText(const Sidecar& sidecar) {
    CLines lines;
    lines.Add("zce_capture", Sidecar::VERSION);
    lines.Add("file", Quoted(sidecar.file));
    lines.Add("state", Quoted(StateName(sidecar.state)));
    lines.Add("ended", Quoted(sidecar.ended));
    lines.Add("compression", Quoted(sidecar.compression));
    lines.Add("bytes", sidecar.bytes);
    lines.Add("uncompressed_bytes", sidecar.uncompressedBytes);
    lines.Add("xxh128", Quoted(sidecar.xxh128));
    lines.Add("messages", sidecar.messages);
    lines.Add("lost", sidecar.lost);
    lines.Add("first_time_ns", sidecar.firstTimeNs);
    lines.Add("last_time_ns", sidecar.lastTimeNs);
    lines.Add("number", sidecar.number);
    lines.Add("previous", Quoted(sidecar.previous));
    lines.Add("next", Quoted(sidecar.next));
    lines.Add("streams", StreamsText(sidecar.streams));
    return "{\n" + lines.Text() + "\n}\n";
}

bool WriteSidecar(const std::string& capture, const Sidecar& sidecar, std::string& error) {
    const std::string path = SidecarPath(capture);
    const std::string before = path + ".new";
    const std::string text = SidecarText(sidecar);
    COutputFile file;
    unlink(before.c_str());  // of a process that was killed
    if (!file.OpenNew(before)) {
        error = std::strerror(errno);
        return false;
    }
    bool written = file.Write(text.data(), text.size(), error);
    file.Close();
    if (written && rename(before.c_str(), path.c_str()) != 0) {
        error = std::strerror(errno);
        written = false;
    }
    if (!written) {
        unlink(before.c_str());
    }
    return written;
}

}  // namespace ZceCapture
