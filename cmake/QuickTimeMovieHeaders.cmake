# Run at install time: copies quicktime/quicktime.h and every project header it includes, directly
# or through other headers, keeping their paths under QT_HEADER_DESTINATION. Inputs: QT_SOURCE_DIR,
# QT_HEADER_DESTINATION.
cmake_policy(VERSION 3.20)
set(pending "quicktime/quicktime.h")
set(public "")
while(pending)
  list(POP_FRONT pending header)
  if(header IN_LIST public OR NOT EXISTS "${QT_SOURCE_DIR}/${header}")
    continue()
  endif()
  list(APPEND public "${header}")
  file(STRINGS "${QT_SOURCE_DIR}/${header}" includes REGEX "^[ \t]*#[ \t]*include[ \t]+\"")
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^[^\"]*\"([^\"]+)\".*$" "\\1" included "${line}")
    list(APPEND pending "${included}")
  endforeach()
endwhile()

foreach(header IN LISTS public)
  get_filename_component(subdir "${header}" DIRECTORY)
  file(INSTALL DESTINATION "${QT_HEADER_DESTINATION}/${subdir}" TYPE FILE FILES "${QT_SOURCE_DIR}/${header}")
endforeach()
