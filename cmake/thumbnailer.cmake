# SPDX-License-Identifier: BSD-2-Clause
# keystill-thumbnailer is built where the libraries that it needs on top of libjpeg are found:
# KEYSTILL_HAS_THUMBNAILER then is true.
option(KEYSTILL_THUMBNAILER "Build keystill-thumbnailer (needs libyuv and libpng)" ON)
set(KEYSTILL_HAS_THUMBNAILER FALSE)
if(NOT KEYSTILL_THUMBNAILER)
    return()
endif()
find_package(PNG QUIET)
# The static library first: as a shared one it brings the C++ library, and loading that takes longer
# than most thumbnails do.
find_library(KEYSTILL_LIBYUV NAMES libyuv.a yuv)
find_path(KEYSTILL_LIBYUV_INCLUDE libyuv.h)
mark_as_advanced(KEYSTILL_LIBYUV KEYSTILL_LIBYUV_INCLUDE)
if(NOT PNG_FOUND OR NOT KEYSTILL_LIBYUV OR NOT KEYSTILL_LIBYUV_INCLUDE)
    message(STATUS "keystill-thumbnailer is not built: libpng or libyuv is missing")
    return()
endif()
set(KEYSTILL_HAS_THUMBNAILER TRUE)
add_library(keystill_libyuv INTERFACE)
target_include_directories(keystill_libyuv SYSTEM INTERFACE ${KEYSTILL_LIBYUV_INCLUDE})
target_link_libraries(keystill_libyuv INTERFACE ${KEYSTILL_LIBYUV})
