# Every dependency is a Debian 12 package installed by scripts/bootstrap.sh.
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)
find_package(Boost 1.81.0 EXACT REQUIRED CONFIG COMPONENTS json url)
find_package(CURL REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
# Optional: the spdlog adapter (VeltoSpdlogLogger) is built when spdlog is found. fmt serves the
# optional VeltoErrorFormatter.hpp and the tests; the library itself does not need it.
find_package(spdlog CONFIG QUIET)
find_package(fmt CONFIG QUIET)
if(spdlog_FOUND)
  set(VELTO_HAS_SPDLOG ON)
  set(VELTO_HAS_SPDLOG_VALUE 1)
else()
  set(VELTO_HAS_SPDLOG OFF)
  set(VELTO_HAS_SPDLOG_VALUE 0)
  message(STATUS "Velto: spdlog not found, VeltoSpdlogLogger left out")
endif()
