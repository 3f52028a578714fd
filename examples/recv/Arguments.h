#pragma once

// The command line of zce-recv.

#include <string>

struct Arguments {
    std::string config;
    std::string namesFile;
    long seconds = 0;  // 0: until a signal
    long print = 0;
    bool ownLoop = false;
    long napUs = 0;
    bool endWithBoard = false;
};

// 0: go on; otherwise the program ends with this status (-1: with 0, it has printed what was asked
// for). What is wrong is told on standard error.
int ReadArguments(int argc, char** argv, Arguments& arguments);

// The channel that the INI file's config:device names, -1 if it names none: the library will say
// so.
long ConfiguredChannel(const std::string& config);
