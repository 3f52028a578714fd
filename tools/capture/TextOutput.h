#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ZceCaptureTool {

// A text that is written in large pieces, to a file or to standard output.
class CTextOutput {
  public:
    CTextOutput() = default;
    ~CTextOutput();
    CTextOutput(const CTextOutput&) = delete;
    CTextOutput& operator=(const CTextOutput&) = delete;

    // Makes or empties the file `path`; standard output if it is empty. False with the reason, also
    // if the file is one of `inputs`, which are read.
    bool Open(const std::string& path, const std::vector<std::string>& inputs, std::string& error);
    // Room for `size` bytes, of at most PIECE_BYTES; Add says how many of them are text.
    std::span<char> Space(std::size_t size);
    void Add(std::size_t size) { m_used += size; }
    void Put(std::string_view text);
    // Whether everything could be written until now. What comes behind a failure is not written.
    bool Good() const { return m_error.empty(); }
    // Writes what is left and closes the file; false with the reason of the first failure, which
    // names the file.
    bool Close(std::string& error);

  private:
    static constexpr std::size_t PIECE_BYTES = std::size_t{1} << 20U;

    void Flush();

    std::string m_name;
    std::string m_error;
    int m_fd = -1;
    std::vector<char> m_piece;
    std::size_t m_used = 0;
};

}  // namespace ZceCaptureTool
