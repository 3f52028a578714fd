#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "Utils/calendar.h"

// The reading of an instrument cache file and what makes it believed, from any open file and for
// any moment. Nothing here logs. The file must be one that rewind() goes back in.

// Reads up to and with the next line end, but at most 255 characters: a longer line comes in
// pieces. False at the end of the file.
bool ZceBinReadPiece(std::FILE* fp, std::string& piece);

// The first line of the whole file that begins with `prefix`, as far as its first piece goes, in
// `text`. False, with `text` as it was, if there is none.
bool ZceBinFindLine(std::FILE* fp, std::string_view prefix, std::string& text);

// Splits an instrument line. False if a token is missing or the name's has no line end; nothing
// else makes a line invalid: an index without digits is 0. A zero byte ends the text.
bool ZceBinParseInst(const char* line, std::string& name, unsigned short& index);

// The number (yyyymmddhhmmss) in a line that begins with ZCE_BIN_TIME_PREFIX.
unsigned long ZceBinTimeOf(const std::string& line);

// The creation times (hhmmss, both inclusive) of a file of the session that is running, by the
// present time of day: from 15:00:00 on it is the night's. Wider than the log's lines say.
struct ZceBinSession_t {
    bool bNight;
    unsigned long ulBegin;
    unsigned long ulEnd;
};
ZceBinSession_t ZceBinSessionAt(unsigned int time);
// Whether a file of this creation time (yyyymmddhhmmss) is of the day and session of `now`.
bool ZceBinIsOfSession(unsigned long creTime, const VORBA2::LocalMoment_t& now);
