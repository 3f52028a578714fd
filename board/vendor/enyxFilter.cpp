#include "vendor/enyxHandles.h"

using ZceBoard::Fail;
using ZceBoard::FailNull;

extern "C" {

ENYX_HW_EXPORT enyx_hw_filter* enyx_hw_filter_create(void) {
    auto* filter = new (std::nothrow) enyx_hw_filter;
    return filter != nullptr ? filter : FailNull(ENOMEM);
}

ENYX_HW_EXPORT void enyx_hw_filter_destroy(enyx_hw_filter* filter) {
    delete filter;
}

ENYX_HW_EXPORT int enyx_hw_filter_set_index(enyx_hw_filter* filter, uint32_t index) {
    if (filter == nullptr) {
        return Fail(EINVAL);
    }
    filter->index = index;
    return 0;
}

ENYX_HW_EXPORT int enyx_hw_filter_set_name(enyx_hw_filter* filter, const char* name) {
    if (filter == nullptr || name == nullptr) {
        return Fail(EINVAL);
    }
    filter->name = name;
    return 0;
}

}  // extern "C"
