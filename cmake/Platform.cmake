# The platform facilities. Each is one small interface in the code (StoreLock.h,
# WindowStickiness.h, ClockJumps.h, ...) with one file per platform; this is the one
# place that says which of those files a build compiles and what they link.
# Subsystems take theirs through tidewell_platform_sources(<target> <facility>...).
#
# TIDEWELL_PLATFORM=none builds every facility's fallback, which does nothing and
# says that it cannot: no tray protocol, window hints, notifications, display-sleep
# hold, clock-jump watch, keyring, start at login, nor the D-Bus control surface.
# It keeps the seams honest and is where a port to another system starts.

if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set(tidewell_default_platform linux)
else()
  set(tidewell_default_platform none)
endif()
set(TIDEWELL_PLATFORM "${tidewell_default_platform}" CACHE STRING
  "Platform facilities to build: linux, or none (fallbacks that do nothing)")
set_property(CACHE TIDEWELL_PLATFORM PROPERTY STRINGS linux none)
if(NOT TIDEWELL_PLATFORM MATCHES "^(linux|none)$")
  message(FATAL_ERROR "TIDEWELL_PLATFORM is linux or none, not '${TIDEWELL_PLATFORM}'")
endif()

set(TIDEWELL_PLATFORM_FACILITIES)

# tidewell_platform_facility(<facility> [SOURCES <file under src/>...] [LIBS <lib>...])
macro(tidewell_platform_facility facility)
  cmake_parse_arguments(tpf "" "" "SOURCES;LIBS" ${ARGN})
  list(APPEND TIDEWELL_PLATFORM_FACILITIES ${facility})
  list(TRANSFORM tpf_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/src/
    OUTPUT_VARIABLE TIDEWELL_PLATFORM_SOURCES_${facility})
  set(TIDEWELL_PLATFORM_LIBS_${facility} ${tpf_LIBS})
endmacro()

if(TIDEWELL_PLATFORM STREQUAL "linux")
  find_package(Qt6 REQUIRED COMPONENTS DBus)
  find_package(Qt6Keychain REQUIRED)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(XCB REQUIRED IMPORTED_TARGET xcb)
  # The session bus is there: the control surface (tw_shell_dbus in src/shell) and
  # the tests of the D-Bus backends are built.
  set(TIDEWELL_SESSION_BUS ON)

  tidewell_platform_facility(store_lock SOURCES core/StoreLockPosix.cpp)
  tidewell_platform_facility(notifications
    SOURCES system/NotificationBackendDBus.cpp system/NotificationBackendDBus.h
      system/DBusCallAwaiter.h
    LIBS Qt6::DBus)
  tidewell_platform_facility(sleep_inhibitor
    SOURCES system/SleepInhibitorDBus.cpp system/SleepInhibitorDBus.h
    LIBS Qt6::DBus)
  tidewell_platform_facility(clock_jumps
    SOURCES system/ClockJumpsLinux.cpp system/ClockJumpsLinux.h
    LIBS Qt6::DBus)
  tidewell_platform_facility(login_items SOURCES system/LaunchAtLoginXdg.cpp)
  # The Secret Service itself is in the tidewell_keyring module (src/sync/keyring).
  tidewell_platform_facility(keyring SOURCES sync/ModuleKeychain.cpp sync/ModuleKeychain.h)
  tidewell_platform_facility(peer_credentials SOURCES shell/PeerCredentialsLinux.cpp)
  tidewell_platform_facility(tray
    SOURCES shell/ui/StatusNotifierItemDBus.cpp shell/ui/StatusNotifierItemDBus.h
      shell/ui/StatusNotifierItemAdaptor.cpp shell/ui/StatusNotifierItemAdaptor.h
      shell/ui/DBusMenuAdaptor.cpp shell/ui/DBusMenuAdaptor.h
      shell/ui/DBusMenuExporter.cpp shell/ui/DBusMenuExporter.h
      shell/ui/TrayDBusTypes.cpp shell/ui/TrayDBusTypes.h
    LIBS Qt6::DBus)
  tidewell_platform_facility(window_stickiness
    SOURCES shell/ui/WindowStickinessX11.cpp shell/ui/SwayCommand.cpp shell/ui/SwayCommand.h
      shell/ui/XcbAtom.cpp shell/ui/XcbAtom.h
    LIBS PkgConfig::XCB)
  tidewell_platform_facility(window_activation
    SOURCES shell/ui/WindowActivationLinux.cpp shell/ui/XcbAtom.cpp shell/ui/XcbAtom.h
    LIBS PkgConfig::XCB)
  tidewell_platform_facility(control LIBS tw_shell_dbus)
  tidewell_platform_facility(process_memory SOURCES app/ProcessMemoryGlibc.cpp)
else()
  set(TIDEWELL_SESSION_BUS OFF)

  tidewell_platform_facility(store_lock SOURCES core/StoreLockNone.cpp)
  tidewell_platform_facility(notifications SOURCES system/NotificationBackendNone.cpp)
  tidewell_platform_facility(sleep_inhibitor SOURCES system/SleepInhibitorNone.cpp)
  tidewell_platform_facility(clock_jumps SOURCES system/ClockJumpsNone.cpp)
  tidewell_platform_facility(login_items SOURCES system/LaunchAtLoginNone.cpp)
  tidewell_platform_facility(keyring SOURCES sync/KeychainBackendNone.cpp)
  tidewell_platform_facility(peer_credentials SOURCES shell/PeerCredentialsNone.cpp)
  tidewell_platform_facility(tray SOURCES shell/ui/StatusNotifierItemNone.cpp)
  tidewell_platform_facility(window_stickiness SOURCES shell/ui/WindowStickinessNone.cpp)
  tidewell_platform_facility(window_activation SOURCES shell/ui/WindowActivationNone.cpp)
  tidewell_platform_facility(control
    SOURCES shell/ControlCommandNone.cpp shell/ControlSurfaceNone.cpp)
  tidewell_platform_facility(process_memory SOURCES app/ProcessMemoryNone.cpp)
endif()
message(STATUS "Tidewell platform: ${TIDEWELL_PLATFORM}")

# tidewell_platform_sources(<target> <facility>...): the facilities' files of this
# platform into <target>, and what they link.
function(tidewell_platform_sources target)
  foreach(facility IN LISTS ARGN)
    if(NOT facility IN_LIST TIDEWELL_PLATFORM_FACILITIES)
      message(FATAL_ERROR "no platform facility '${facility}'")
    endif()
    if(TIDEWELL_PLATFORM_SOURCES_${facility})
      target_sources(${target} PRIVATE ${TIDEWELL_PLATFORM_SOURCES_${facility}})
    endif()
    if(TIDEWELL_PLATFORM_LIBS_${facility})
      target_link_libraries(${target} PRIVATE ${TIDEWELL_PLATFORM_LIBS_${facility}})
    endif()
  endforeach()
endfunction()
