# Every dependency is a Debian 12 package installed by scripts/bootstrap.sh.
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)
find_package(Boost 1.81.0 EXACT REQUIRED CONFIG COMPONENTS json url)
find_package(CURL REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
