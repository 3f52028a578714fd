target_sources(velazce_core PRIVATE ${CMAKE_CURRENT_LIST_DIR}/SignalProcess.cpp)
