#pragma once

#include <string>
#include <vector>

// The tables of the configuration pages, read as a person reads them: headings, code blocks, tables
// whose exact texts stand in code spans.
namespace velatest {

// One cell of a table.
struct DocCell {
    std::string raw;                 // the Markdown text, without blanks around it
    std::vector<std::string> spans;  // what stands between backticks, shorthands written out
};

struct DocRow {
    int line = 0;  // of the page, from 1
    std::vector<DocCell> cells;
};

struct DocTable {
    std::string title;  // of the heading above, without backticks
    // The last ini block between that heading and the table, shorthands as they stand.
    std::vector<std::string> block;
    std::vector<std::string> columns;
    std::vector<DocRow> rows;
};

// The guide has the rules that select instruments, the reference every value of every key.
inline constexpr const char* guidePage = VELAZCE_SOURCE "/docs/configuration.md";
inline constexpr const char* configPage = VELAZCE_SOURCE "/docs/configuration-reference.md";

// An ini block as it stands on a page.
struct IniSample {
    int line = 0;  // of its first line, from 1
    std::vector<std::string> lines;
};

// Every ini block of the page; empty if it cannot be read.
std::vector<IniSample> ReadIniSamples(const std::string& path);

// Every table of the page; empty if it cannot be read.
std::vector<DocTable> ReadDocTables(const std::string& path);

// The tables whose first column bears this name.
std::vector<DocTable> DocTablesOf(const std::string& path, const std::string& firstColumn);

// Writes a shorthand out: {A*900} is 900 times A, \x00 the byte of this hexadecimal number, and the
// signs for blank, tab and carriage return are these characters.
std::string ExpandShorthand(const std::string& text);

}  // namespace velatest
