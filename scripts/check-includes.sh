#!/usr/bin/env bash
# check-includes.sh: who includes whom. Every #include of the tree's own headers goes from a room (a
# folder with one duty) to a room that the table below lets it see, and names that room. Prints the
# arrows between rooms with their counts; what is wrong with file and line, and then fails. Refuses
# code that is switched off by #if 0 and the like as well, and CLI11 outside its one file.
set -euo pipefail
cd "${1:-$(dirname "$0")/..}"
export LC_ALL=C

# Where the rooms are. A file belongs to the room with the longest path that begins its own.
rooms() {
    cat <<'ROOMS'
include             include/
board/include       board/include/
program             program/
memory              board/memory/
vendor              board/vendor/
exchange            board/exchange/
device              board/device/
traffic             board/traffic/
ctl                 board/ctl/
process             board/process/
process/main        board/process/zceBoardMain.cpp
capture             capture/
tools/preload       tools/preload/
relay               relay/
tools/record        tools/record/
tools/watch         tools/watch/
tools/top           tools/top/
tools/check         tools/check/
tools/bin           tools/bin/
tools/capture       tools/capture/
tools/relay         tools/relay/
examples            examples/
bench               bench/
fuzz                fuzz/
src/api             src/VelaZceMdApiImpl
src/worker          src/VelaZceUpdma
src/binfile         src/VelaZceBin
src/keep            src/VelaZceKeep
src/signal          src/SignalProcess
src/DataType        src/DataType/
src/DrvEnyx         src/DrvEnyx/
src/enyxHw          src/DrvEnyx/enyxHw.h
src/log             src/log/
src/Utils           src/Utils/
tests/support       tests/support/
tests/unit          tests/unit/
tests/differential  tests/differential/
tests/anomaly       tests/anomaly/
tests/system        tests/system/
tests/capture       tests/capture/
tests/record        tests/record/
tests/watch         tests/watch/
tests/memory        tests/memory/
tests/vendor        tests/vendor/
tests/exchange      tests/exchange/
tests/device        tests/device/
tests/traffic       tests/traffic/
tests/process       tests/process/
tests/ctl           tests/ctl/
tests/top           tests/top/
tests/check         tests/check/
tests/bin           tests/bin/
tests/capturetool   tests/capturetool/
tests/relay         tests/relay/
ROOMS
}

# Which room sees which; a room sees itself. "room:Header.h" is that one header of the room alone.
# Arrows go down.
table() {
    cat <<'TABLE'
# The software board.
process/main        program process ctl traffic device exchange memory capture relay
process             program traffic device exchange memory capture board/include
traffic             device exchange memory capture relay board/include
device              exchange memory board/include
exchange            memory:RegisterMap.h memory:Phase.h memory:HostClock.h board/include
ctl                 program memory
vendor              memory src/enyxHw board/include
memory
capture
# A board's messages on a NATS server.
relay               board/include
program
board/include
# Tools. zce-top measures its pauses on the clock that the board's pauses are measured on.
tools/preload       src/enyxHw
tools/record        tools/preload capture src/enyxHw
tools/watch         tools/preload program src/enyxHw
tools/top           program ctl tools/watch memory:HostClock.h
# The library's own rules, asked before the day.
tools/check         program include src/* exchange memory
tools/bin           program include src/*
tools/capture       program capture board/include
# An application of the library.
tools/relay         program relay capture include board/include
# The library, from the top down. The include/ headers are its face, and C++11-clean.
include
src/api             src/worker src/DataType src/binfile src/DrvEnyx src/keep src/signal src/log src/Utils include
src/worker          src/DataType src/binfile src/DrvEnyx src/keep src/signal src/log src/Utils include
src/DataType        src/binfile src/DrvEnyx src/log src/Utils include
src/binfile         src/DrvEnyx src/log src/Utils include
src/DrvEnyx         src/enyxHw src/log src/Utils include
src/keep            src/log src/Utils include
src/signal          src/log src/Utils include
src/log             src/Utils include
src/Utils           include
src/enyxHw
# What a user starts from.
examples            include board/include
# Benchmarks and tests. The tests of a room see what it sees, and the rooms below it.
bench               include board/include device exchange memory capture relay tools/watch src/*
fuzz                tools/capture include src/* process traffic device exchange memory capture board/include tests/support
tests/support       include src/*
tests/unit          include src/* tests/support tools/check:WhenStart.h
tests/differential  include src/* tests/support
tests/anomaly       include src/* tests/support
tests/capture       capture tests/support
tests/record        tools/record tools/preload capture tests/support
tests/watch         tools/watch tools/preload tests/support
tests/memory        memory tests/support
tests/vendor        vendor memory src/enyxHw board/include device tests/memory
tests/exchange      exchange memory board/include
tests/device        device exchange memory board/include src/* tests/unit tests/support
tests/traffic       traffic device exchange memory capture board/include tests/support
tests/process       process traffic relay device exchange memory capture board/include tests/memory tests/vendor tests/support
tests/ctl           ctl memory tests/memory
tests/top           tools/top tools/watch ctl
tests/check         tools/check program include src/* exchange memory tests/support
tests/bin           tools/bin program include src/* tests/support
tests/capturetool   tools/capture program capture board/include tests/support
tests/relay         tools/relay relay capture include board/include tests/support
tests/system        ctl memory capture tools/watch include src/enyxHw src/DrvEnyx src/log src/signal tests/support
TABLE
}

# What goes up all the same, file by file, and why: the worker reads the callback pointer of the API
# object that owns it, for each message, and gives the register driver back through it. A line is a
# file and what it includes; one that is no longer there is refused.
excused() {
    cat <<'EXCUSED'
src/VelaZceUpdmaImpl.cpp    VelaZceMdApiImpl.h
src/VelaZceUpdmaMsg.cpp     VelaZceMdApiImpl.h
EXCUSED
}

files() {
    find . \( -path ./build -o -path './.*' \) -prune -o -type f \
        \( -name '*.h' -o -name '*.c' -o -name '*.cpp' \) -print | sed 's/^\.\///' | sort
}

status=0
# shellcheck disable=SC2046
awk -v rooms="$(rooms)" -v table="$(table)" -v excuses="$(excused)" -v files="$(files)" '
    function wrong(text) { print FILENAME ":" FNR ": " text; bad = 1 }
    function folder(path) { sub(/[^\/]*$/, "", path); return path }
    function roomOf(path,    k, best, length_) {
        length_ = -1
        for (k in place) {
            if (index(path, place[k]) == 1 && length(place[k]) > length_) {
                best = k
                length_ = length(place[k])
            }
        }
        return best
    }
    # The file that a name means, for a file of this path; "" for what is none of the tree.
    function meant(name, from,    k, path, prefix) {
        if (name ~ /\//) {
            prefix = name
            sub(/\/.*/, "", prefix)
            if (prefix in named) {
                return named[prefix] substr(name, length(prefix) + 2)
            }
            return name in there ? name : ""
        }
        if ((path = folder(from) name) in there) return path
        for (k in bare) {
            if ((path = bare[k] name) in there) {
                if (bare[k] == "src/" && from !~ /^(src|bench|fuzz|tools\/(check|bin)|tests\/(bin|check|unit|support|device|differential|anomaly|system))\//) continue
                if (bare[k] == "tests/support/" && from !~ /^(tests|fuzz)\//) continue
                return path
            }
        }
        return ""
    }
    # Whether a header of this bare name is anywhere in the tree.
    function somewhere(name,    k) {
        for (k in there) {
            if (k == name || substr(k, length(k) - length(name)) == "/" name) return k
        }
        return ""
    }
    function sees(from, to, path,    k, name) {
        name = path
        sub(/.*\//, "", name)
        if ((from, to) in may || (from, to ":" name) in may) return 1
        return to ~ /^src\// && (from, "src/*") in may
    }
    BEGIN {
        split(rooms, line, "\n")
        for (k in line) { split(line[k], word, " "); place[word[1]] = word[2] }
        n = split(table, line, "\n")
        for (k = 1; k <= n; ++k) {
            if (line[k] ~ /^#/) continue
            count = split(line[k], word, " ")
            rows[word[1]] = 1
            for (w = 2; w <= count; ++w) may[word[1], word[w]] = 1
        }
        split(excuses, line, "\n")
        for (k in line) { split(line[k], word, " "); excused[word[1] " " word[2]] = 0 }
        count = split(files, line, "\n")
        for (k = 1; k <= count; ++k) there[line[k]] = 1
        # What stands in front of the slash of an include, and where that is.
        split("memory vendor exchange device traffic ctl process", word, " ")
        for (k in word) named[word[k]] = "board/" word[k] "/"
        named["capture"] = "capture/"; named["record"] = "tools/record/"; named["relay"] = "relay/"; named["relay-tool"] = "tools/relay/"; named["preload"] = "tools/preload/"; named["watch"] = "tools/watch/"; named["top"] = "tools/top/"
        named["check"] = "tools/check/"; named["bin"] = "tools/bin/"
        named["capturetool"] = "tools/capture/"
        split("DataType DrvEnyx log Utils", word, " ")
        for (k in word) named[word[k]] = "src/" word[k] "/"
        # What is included by its name alone: the public headers, in src/ and its tests what lies at
        # its top, and in tests what all of them share.
        split("include/ board/include/ src/ tests/support/", bare, " ")
        for (k in place) if (!(k in rows)) { print "check-includes: " k " has no row"; bad = 1 }
    }
    FNR == 1 && roomOf(FILENAME) == "" { wrong("this file is in no room") }
    /^[ \t]*#[ \t]*(if[ \t]+[01]|ifdef[ \t]+X[0-9])([^0-9A-Za-z_]|$)/ {
        wrong("code that is switched off: " $0)
    }
    /^[ \t]*#[ \t]*include[ \t]*[<"]/ {
        quoted = $0 ~ /include[ \t]*"/
        name = $0
        sub(/^[^<"]*[<"]/, "", name)
        sub(/[>"].*/, "", name)
        if (name ~ /(^|\/)\.\.?\//) { wrong("\"" name "\": an include names the room, not the way to it"); next }
        if (name ~ /^CLI\// && FILENAME != "program/CommandLine.cpp") {
            wrong("<" name "> takes the compiler seconds: command lines are described with program/CommandLine.h")
            next
        }
        path = meant(name, FILENAME)
        if (path == "") {
            if (name ~ /\// && (substr(name, 1, index(name, "/") - 1) in named)) wrong("\"" name "\": there is no such header")
            else if (quoted && (path = somewhere(name)) != "") wrong("\"" name "\": it names no room; it is " path)
            else if (quoted && name !~ /\//) wrong("\"" name "\": there is no such header")
            next
        }
        if (!(path in there)) { wrong("\"" name "\": there is no such header"); next }
        from = roomOf(FILENAME)
        to = roomOf(path)
        if (from == to || from == "" || to == "") next
        if ((FILENAME " " name) in excused) { ++excused[FILENAME " " name]; ++up[from " -> " to]; next }
        if (!sees(from, to, path)) { wrong("\"" name "\": " from " does not see " to); next }
        ++arrows[from " -> " to]
    }
    END {
        for (k in excused) if (!excused[k]) { print "check-includes: an excuse is not needed any more: " k; bad = 1 }
        for (k in arrows) print k " " arrows[k] | "sort"
        close("sort")
        for (k in up) print k " " up[k] " (excused)" | "sort"
        close("sort")
        exit bad
    }' $(files) || status=$?
[ $status -eq 0 ] && echo "check-includes: no arrow goes up" || echo "check-includes: FAILED"
exit $status
