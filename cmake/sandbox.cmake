# SPDX-License-Identifier: BSD-2-Clause
# Sanitizers open files, start threads and trace while they report, so builds with them go without
# the sandbox. Turn it off for runs under valgrind as well.
set(sandbox_default ON)
string(TOUPPER "${CMAKE_BUILD_TYPE}" build_type)
if("${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${build_type}}" MATCHES "-fsanitize")
    set(sandbox_default OFF)
endif()
option(KEYSTILL_SANDBOX "Give up all that a run does not need before it reads its input"
    ${sandbox_default})
