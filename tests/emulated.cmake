# Tests of a build for another processor: its programs run emulated, driven by the tests of the
# build in LUMET_NATIVE_BUILD, and must give the bytes that are kept here or that the native
# programs give. None of them depends on how fast the emulator is.
set(LUMET_NATIVE_BUILD ${PROJECT_SOURCE_DIR}/build/release CACHE PATH
    "Build of this machine's own whose tests drive the emulated head")
set(emulated ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:lumet-bench>)
list(JOIN emulated " " emulated)
set(native ${LUMET_NATIVE_BUILD}/lumet-bench)

# The self-tests print what they see, which must be the same apart from their directories.
set(self_tests ${CMAKE_BINARY_DIR}/self_tests)
add_test(NAME self_tests
         COMMAND sh -ec "\
           ${native} --root ${self_tests}/native -- -u > ${CMAKE_BINARY_DIR}/native.txt; \
           ${emulated} --root ${self_tests}/emulated -- -u > ${CMAKE_BINARY_DIR}/emulated.txt; \
           sed -i 's/lumet-test-[A-Za-z0-9]*/lumet-test/' \
             ${CMAKE_BINARY_DIR}/native.txt ${CMAKE_BINARY_DIR}/emulated.txt; \
           diff ${CMAKE_BINARY_DIR}/native.txt ${CMAKE_BINARY_DIR}/emulated.txt; \
           tail -n 2 ${CMAKE_BINARY_DIR}/emulated.txt | grep 'Tests Successful!'")

add_test(NAME default_tree
         COMMAND sh -c "${emulated} --print-tree | \
                        diff ${PROJECT_SOURCE_DIR}/tests/data/default_tree.txt -")

# An emulator lends its programs the wide files and times of this machine's kernel, so it is their
# calls of the C library that show it: the narrow ones have the plain names.
string(CONCAT narrow "(open|openat|creat|fopen|freopen|lseek|fseeko|ftello|truncate|ftruncate|"
  "pread|pwrite|mmap|stat|fstat|lstat|fstatat|readdir|scandir|statvfs|sendfile|"
  "time|gettimeofday|settimeofday|clock_gettime|clock_settime|clock_nanosleep|nanosleep|"
  "localtime(_r)?|gmtime(_r)?|mktime|timegm|ctime(_r)?|difftime|utimes|utimensat|futimens|"
  "select|pselect|ppoll|recvmmsg|sigtimedwait|sem_timedwait|timerfd_settime|getitimer|setitimer|"
  "(get|set)sockopt|sendmsg|recvmsg|ioctl|fcntl)")
add_test(NAME wide_files_and_times
         COMMAND sh -ec "\
           ${CMAKE_NM} -D --undefined-only $<TARGET_FILE:lumet> > ${CMAKE_BINARY_DIR}/calls.txt; \
           grep -q ' __time64@' ${CMAKE_BINARY_DIR}/calls.txt; \
           ! grep -E ' ${narrow}@' ${CMAKE_BINARY_DIR}/calls.txt")

foreach(tests Session.ReplaysToItsGoldenTranscript Console.SpeaksAsItsTranscriptsTell
              System.* Rows.* Timing.*)
  add_test(NAME ${tests} COMMAND ${LUMET_NATIVE_BUILD}/tests/end_to_end --gtest_filter=${tests})
  set_tests_properties(${tests} PROPERTIES TIMEOUT 120
                       ENVIRONMENT "LUMET_BENCH_COMMAND=${emulated}")
endforeach()
