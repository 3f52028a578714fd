# The API object, the channel worker and the cache file.
target_sources(velazce_core PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceBinFile.cpp
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceBinFileIntrade.cpp
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceKeep.cpp
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceMdApiImpl.cpp
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceUpdmaImpl.cpp
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceUpdmaMsg.cpp)
# Compiled by itself in a build that compiles several files as one: its times of day have the names of
# the worker's.
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/VelaZceBinFileIntrade.cpp
                            PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
