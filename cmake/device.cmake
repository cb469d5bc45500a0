# The component "device": what a device without packages needs, for "cmake --install BUILD --component device --prefix DIR". DIR
# stands for the device's root folder; a plain "cmake --install" leaves the component out.

install(TARGETS tessel_daemon RUNTIME DESTINATION usr/sbin COMPONENT device EXCLUDE_FROM_ALL)
if(TESSEL_BUILD_TOOL)
  install(TARGETS tesselctl RUNTIME DESTINATION usr/bin COMPONENT device EXCLUDE_FROM_ALL)
endif()
install(TARGETS tessel_shared LIBRARY DESTINATION usr/lib COMPONENT device EXCLUDE_FROM_ALL NAMELINK_SKIP)
# Where the daemon looks for them.
install(PROGRAMS ${PROJECT_SOURCE_DIR}/device/udhcpc.script ${PROJECT_SOURCE_DIR}/device/udhcpc6.script
  DESTINATION etc/scripts COMPONENT device EXCLUDE_FROM_ALL)

# Strips what is not stripped yet, and prints what the files take.
set(report [[
function(PrintBytes bytes text)
  string(LENGTH "         ${bytes}" length)
  math(EXPR begin "${length} - 9")
  string(SUBSTRING "         ${bytes}" ${begin} 9 bytes)
  message("${bytes}  ${text}")
endfunction()
set(root $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX})
file(GLOB programs ${root}/usr/sbin/tessel_daemon ${root}/usr/bin/tesselctl ${root}/usr/lib/libtessel.so.*.*)
file(GLOB scripts ${root}/etc/scripts/udhcpc*.script)
execute_process(COMMAND ${strip} --strip-unneeded ${programs} COMMAND_ERROR_IS_FATAL ANY)
set(sum 0)
foreach(file ${programs} ${scripts})
  file(SIZE ${file} bytes)
  math(EXPR sum "${sum} + ${bytes}")
  cmake_path(RELATIVE_PATH file BASE_DIRECTORY ${root})
  PrintBytes(${bytes} /${file})
endforeach()
PrintBytes(${sum} "bytes in all")
]])
install(CODE "set(strip ${CMAKE_STRIP})\n${report}" COMPONENT device EXCLUDE_FROM_ALL)
