# The API object, the channel worker and the cache file.
target_sources(velazce_core PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceBinFile.cpp
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceBinFileIntrade.cpp
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceBinRead.cpp
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceKeep.cpp
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceMdApiImpl.cpp
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceUpdmaImpl.cpp
  ${CMAKE_CURRENT_LIST_DIR}/VelaZceUpdmaMsg.cpp)
