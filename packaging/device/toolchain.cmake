# The device: arm64 with iOS 13.0 or later. clang++-19 compiles, with the headers that
# scripts/fetch-sdk puts under build/ and nothing of this machine's; ld64.lld-19 links, called
# directly: the compiler would say more than is wanted.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR arm64)
# There is nothing to link a trial program with.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_CXX_COMPILER_TARGET arm64-apple-ios13.0)
find_program(SONDEX_DEVICE_LINKER ld64.lld-19 REQUIRED)

set(fetched ${CMAKE_CURRENT_LIST_DIR}/../../build)
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-resource-dir OUTPUT_VARIABLE resources
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
string(JOIN " " CMAKE_CXX_FLAGS_INIT
  -nostdinc -nostdinc++
  -isystem ${fetched}/libcxx/usr/lib/llvm-19/include/c++/v1
  -isystem ${resources}/include
  -isystem ${fetched}/sdk/libc/include/any-darwin-any)

# The second version is the one whose ways the system's libraries keep to for this program. The times
# of objects are left out, so that the same source gives the same bytes.
string(JOIN " " CMAKE_CXX_LINK_EXECUTABLE
  "<CMAKE_COMMAND> -E env ZERO_AR_DATE=1 ${SONDEX_DEVICE_LINKER}"
  "-arch arm64 -platform_version ios 13.0 17.0 <LINK_FLAGS> -o <TARGET> <OBJECTS> <LINK_LIBRARIES>")
