#pragma once

#include <cerrno>

// Keeps the reason of a failed call: what is logged and given back on the way out may change errno,
// and the caller's message wants the reason of the failure. Declare it before the first call, mark
// the failure with Keep; the destructor puts that errno back.
class CKeptErrno {
  public:
    CKeptErrno() = default;
    CKeptErrno(const CKeptErrno&) = delete;
    CKeptErrno& operator=(const CKeptErrno&) = delete;
    ~CKeptErrno() {
        if (m_bKept) {
            errno = m_iErrno;
        }
    }

    void Keep() {
        m_iErrno = errno;
        m_bKept = true;
    }

  private:
    int m_iErrno = 0;
    bool m_bKept = false;
};
