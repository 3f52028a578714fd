#include "log/elog.h"
