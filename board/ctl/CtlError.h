#pragma once

#include <stdexcept>

namespace ZceBoard {

// Why a command cannot be done, as one line for people without the program's name: what and where.
class CCtlError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace ZceBoard
