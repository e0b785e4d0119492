# The device SDK brings the platform's headers and libraries as pkg-config modules.
set(TRELVO_SDK_MODULES capi-appfw-application dlog capi-system-device capi-system-info vconf)
pkg_check_modules(TRELVO_SDK IMPORTED_TARGET ${TRELVO_SDK_MODULES})
if(NOT TRELVO_SDK_FOUND)
  list(JOIN TRELVO_SDK_MODULES ", " modules)
  message(FATAL_ERROR
    "TRELVO_DEVICE_SDK is ON but pkg-config does not find the device SDK (${modules}). "
    "Point PKG_CONFIG_PATH at the SDK's modules, or leave TRELVO_DEVICE_SDK off to build "
    "against the Linux port.")
endif()

add_library(trelvo_platform_api INTERFACE)
target_include_directories(trelvo_platform_api SYSTEM INTERFACE ${TRELVO_SDK_INCLUDE_DIRS})
add_library(trelvo_platform INTERFACE)
target_link_libraries(trelvo_platform INTERFACE PkgConfig::TRELVO_SDK)
