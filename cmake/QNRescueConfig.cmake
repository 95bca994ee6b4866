# QNRescue::qnrescuelib is libqnrescuelib.dll; with it comes QNRescue::devforwardmin, through which
# CoreFoundation's functions are called.
include("${CMAKE_CURRENT_LIST_DIR}/QNRescueTargets.cmake")
