# SPDX-License-Identifier: BSD-2-Clause
# keystill-thumbnailer is built where the libraries that it needs on top of libjpeg are found:
# KEYSTILL_HAS_THUMBNAILER then is true.
option(KEYSTILL_THUMBNAILER "Build keystill-thumbnailer (needs libyuv and libpng)" ON)
set(KEYSTILL_HAS_THUMBNAILER FALSE)
if(NOT KEYSTILL_THUMBNAILER)
    return()
endif()
# Static libraries first: loading shared ones takes a good part of the time that a thumbnail does,
# most of all the C++ library that libyuv brings.
find_library(KEYSTILL_LIBYUV NAMES libyuv.a yuv)
find_path(KEYSTILL_LIBYUV_INCLUDE libyuv.h)
find_library(KEYSTILL_LIBPNG NAMES libpng16.a png16)
find_path(KEYSTILL_LIBPNG_INCLUDE png.h)
find_library(KEYSTILL_LIBZ NAMES libz.a z)
set(needed
    KEYSTILL_LIBYUV KEYSTILL_LIBYUV_INCLUDE KEYSTILL_LIBPNG KEYSTILL_LIBPNG_INCLUDE KEYSTILL_LIBZ)
mark_as_advanced(${needed})
foreach(place IN LISTS needed)
    if(NOT ${place})
        message(STATUS "keystill-thumbnailer is not built: libyuv or libpng is missing")
        return()
    endif()
endforeach()
set(KEYSTILL_HAS_THUMBNAILER TRUE)
foreach(name yuv png)
    string(TOUPPER KEYSTILL_LIB${name} place)
    add_library(keystill_lib${name} INTERFACE)
    target_include_directories(keystill_lib${name} SYSTEM INTERFACE ${${place}_INCLUDE})
    target_link_libraries(keystill_lib${name} INTERFACE ${${place}})
endforeach()
target_link_libraries(keystill_libpng INTERFACE ${KEYSTILL_LIBZ} m)
