#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// Texts between the library (bytes) and the cases and results (JSON), and the log's lines.
namespace velatest {

// A text of a case has one character for each byte.
std::string Bytes(const nlohmann::json& text);
// Hexadecimal digits of a case.
std::vector<std::uint8_t> FromHex(const std::string& text);
std::string ToHex(const std::string& bytes);
// Everything but printable ASCII, and the backslash, as \xNN.
std::string Escaped(const std::string& text);

// The lines that the library logged since the last clear, each as the level's letter, a blank and
// the escaped text.
std::vector<std::string>& LoggedLines();

}  // namespace velatest
