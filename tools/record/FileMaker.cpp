#include "record/FileMaker.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "capture/FileStatus.h"

namespace ZceRecord {

namespace {

constexpr size_t MOST_OF_A_NAME = 1'000'000;

// The capture's name without its ending of a compressed file.
std::string WithoutZst(const std::string& name) {
    return EndsWithZst(name) ? name.substr(0, name.size() - 4) : name;
}

// A pipe or a device is written to as it is, and a folder is refused.
bool IsThereAndNoFile(const std::string& path) {
    const std::optional<ZceCapture::FileStatus> status = ZceCapture::StatusOf(path);
    return status && !status->regular;
}

}  // namespace

bool CFileMaker::Make(const NameParts& parts, ZceCapture::COutputFile& output, File& file,
                      std::string& taken, std::string& error) {
    return Make({Expand(m_settings.name, parts), Expand(m_settings.path, parts)}, output, file,
                taken, error);
}

bool CFileMaker::MakeRegisters(const NameParts& parts, ZceCapture::COutputFile& output, File& file,
                               std::string& taken, std::string& error) {
    const std::string ending = ".registers";
    return Make({WithoutZst(Expand(m_settings.name, parts)) + ending,
                 WithoutZst(Expand(m_settings.path, parts)) + ending},
                output, file, taken, error);
}

bool CFileMaker::Make(const File& wanted, ZceCapture::COutputFile& output, File& file,
                      std::string& taken, std::string& error) {
    file = wanted;
    taken.clear();
    if (IsThereAndNoFile(wanted.path)) {
        return output.Open(wanted.path, error);
    }
    if (!MakeFoldersOf(wanted.path, error)) {
        return false;
    }
    error = SpaceFault(wanted.path);
    return error.empty() && MakeNumbered(wanted, output, file, taken, error);
}

bool CFileMaker::MakeNumbered(const File& wanted, ZceCapture::COutputFile& output, File& file,
                              std::string& taken, std::string& error) {
    const std::lock_guard guard(m_mutex);
    for (size_t k = 1; k <= MOST_OF_A_NAME; ++k) {
        file = {Numbered(wanted.name, k), Numbered(wanted.path, k)};
        if (m_settings.overwrite && m_made.count(file.path) == 0) {
            m_made.insert(file.path);
            return output.Open(file.path, error);
        }
        if (!m_settings.overwrite && output.OpenNew(file.path)) {
            return true;
        }
        if (!m_settings.overwrite && errno != EEXIST) {
            error = std::strerror(errno);
            return false;
        }
        taken = wanted.name;
    }
    error = "all names up to this one are taken";
    return false;
}

std::string CFileMaker::SpaceFault(const std::string& path) const {
    Space space;
    if (m_settings.freeBytes == 0 || !m_surroundings.space(path, space)) {
        return "";
    }
    constexpr uint64_t mib = uint64_t{1} << 20;
    const uint64_t kept = m_settings.freeByDefault
                              ? std::min(m_settings.freeBytes, space.allBytes / 10)
                              : m_settings.freeBytes;
    if (space.freeBytes >= kept) {
        return "";
    }
    return std::to_string(space.freeBytes / mib) + " MiB are free on its disk, " +
           std::to_string(kept / mib) + " are kept free (ZCE_RECORD_FREE_MIB)";
}

}  // namespace ZceRecord
