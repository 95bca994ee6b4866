# QNRescue::qnrescuelib is libqnrescuelib.dll; QNRescue::devforwardmin forwards calls to
# CoreFoundation.
include("${CMAKE_CURRENT_LIST_DIR}/QNRescueTargets.cmake")
