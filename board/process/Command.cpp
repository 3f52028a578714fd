#include "process/Command.h"

#include <fcntl.h>
#include <semaphore.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill()
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "memory/HostClock.h"

namespace ZceBoard {

namespace {

constexpr int64_t LAST_MESSAGES_NS = NS_PER_SECOND;
constexpr int SIGNALLED = 128;

// A process under libfaketime that becomes another program by exec leaves these behind.
void RemoveFaketimeMemory(pid_t pid) {
    const std::string number = std::to_string(pid);
    shm_unlink(("/faketime_shm_" + number).c_str());
    sem_unlink(("/faketime_sem_" + number).c_str());
}

}  // namespace

CCommand::CCommand(std::vector<std::string> words, const CCommandSetting& setting)
    : m_words(std::move(words)),
      m_setting(setting),
      m_board(getpid()),
      m_output(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    fflush(stdout);
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

CCommand::~CCommand() {
    fflush(stdout);
    if (m_output >= 0) {
        dup2(m_output, STDOUT_FILENO);
        close(m_output);
    }
}

void CCommand::Start() {
    m_bStarted = true;
    int errors[2] = {-1, -1};
    const Signals::CBlocked blocked;
    if (pipe2(errors, O_CLOEXEC) != 0 || (m_pid = fork()) < 0) {
        fprintf(stderr, "zce-board: %s: cannot start a process: %s\n", m_words[0].c_str(),
                strerror(errno));
        End(CANNOT_BE_RUN);
    } else if (m_pid == 0) {
        Become(errors[1], blocked);
    }
    close(errors[1]);
    int err = 0;
    if (m_pid > 0 && read(errors[0], &err, sizeof(err)) == sizeof(err)) {
        waitpid(m_pid, nullptr, 0);
        fprintf(stderr, "zce-board: %s: %s\n", m_words[0].c_str(), strerror(err));
        End(err == ENOENT ? IS_NOT_THERE : CANNOT_BE_RUN);
    }
    close(errors[0]);
}

// In the child. What keeps it from being the command is told in `errors`, else that is closed.
void CCommand::Become(int errors, const Signals::CBlocked& blocked) const {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != m_board) {  // it was killed just before
        _exit(IS_NOT_THERE);
    }
    Signals::Restore();
    blocked.Release();
    if (m_output >= 0) {
        dup2(m_output, STDOUT_FILENO);
    } else {
        close(STDOUT_FILENO);
    }
    for (const auto& [name, value] : m_setting.Environment()) {
        value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
    }
    std::vector<char*> words;
    words.reserve(m_words.size() + 1);
    for (const std::string& word : m_words) {
        words.push_back(const_cast<char*>(word.c_str()));  // execvp's own signature
    }
    words.push_back(nullptr);
    execvp(words[0], words.data());
    const int err = errno;
    [[maybe_unused]] const ssize_t told = write(errors, &err, sizeof(err));
    _exit(IS_NOT_THERE);
}

void CCommand::End(int status) {
    m_bEnded = true;
    m_status = status;
}

bool CCommand::HasEnded() {
    if (m_bEnded) {
        return true;
    }
    while (const int signal = Signals::TakeSent()) {
        kill(m_pid, signal);
    }
    int status = 0;
    if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
        RemoveFaketimeMemory(m_pid);
        End(WIFSIGNALED(status) ? SIGNALLED + WTERMSIG(status) : WEXITSTATUS(status));
    }
    return m_bEnded;
}

void CCommand::LetEnd(int64_t nowNs) {
    if (m_idleSinceNs == 0) {
        m_idleSinceNs = nowNs;
    }
    if (!m_bToldToEnd && !m_bEnded && nowNs - m_idleSinceNs >= LAST_MESSAGES_NS) {
        m_bToldToEnd = true;
        kill(m_pid, SIGTERM);
    }
}

}  // namespace ZceBoard
