#pragma once

#include <string>

#include "capture/Sidecar.h"

namespace ZceCapture {

// Whether a capture is what its sidecar tells.
struct SidecarCheck {
    enum class Verdict {
        Good,          // every byte is as it was when the recorder ended the file
        Absent,        // there is no sidecar
        Unreadable,    // the capture or its sidecar cannot be read, or the sidecar is none
        BeingWritten,  // a recorder has the file open
        Interrupted,   // the recorder was killed, or the machine went down, before the file's end
        Cut,           // the file has fewer bytes than it had
        Changed,       // as many or more, and others
    };
    Verdict verdict = Verdict::Unreadable;
    std::string text;  // one line that names the file: "day.pcap: ..."
    Sidecar sidecar;   // as it was read: not for Absent and Unreadable
};

// Reads the sidecar of a capture. False with the reason, which names the sidecar's file.
bool ReadSidecar(const std::string& capture, Sidecar& sidecar, std::string& error);

// Compares a capture with its sidecar: reads it through once. The capture's own contents are not
// looked at: that is CCaptureReader's.
SidecarCheck CheckSidecar(const std::string& capture);

}  // namespace ZceCapture
