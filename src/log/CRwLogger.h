#pragma once

// A service that is started with a directory and a name.
class ILogger {
  public:
    ILogger() = default;
    virtual ~ILogger() = default;
    ILogger(const ILogger&) = delete;
    ILogger& operator=(const ILogger&) = delete;

    // Returns 0, or -1 after the reason has been printed to standard error.
    virtual int Init(int, const char* dir, const char* name) = 0;
};

// The process's log service (elog.h) as an object: made at most once a process, by the API object.
class CRwLogger final : public ILogger {
  public:
    // Closes the log file; lines after that go to standard output alone.
    ~CRwLogger() override;

    // Opens "<dir>/<name>_<yyyymmdd>.log", installs the line formats, makes standard output
    // unbuffered and starts the output. The first argument is ignored. A second call does not open
    // the file anew, but installs the formats and writes the first line again.
    int Init(int, const char* dir, const char* name) override;
};
