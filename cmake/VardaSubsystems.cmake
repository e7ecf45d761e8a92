# varda_subsystem(NAME [DEPS...]): a static library varda_NAME from the sources
# below src/NAME, linked to varda_DEP for each dependency.
function(varda_subsystem name)
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/src/${name}/*.cpp)
  list(FILTER srcs EXCLUDE REGEX "/exports/")
  if(NOT srcs)
    set(srcs ${PROJECT_SOURCE_DIR}/cmake/empty.cpp)
  endif()
  # The objects serve both the static library (for tests and tools) and the
  # plug-in module, which takes every object whatever the plug-in names.
  add_library(varda_${name}_obj OBJECT ${srcs})
  target_include_directories(varda_${name}_obj PUBLIC
    ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
  add_library(varda_${name} STATIC $<TARGET_OBJECTS:varda_${name}_obj>)
  target_include_directories(varda_${name} PUBLIC
    ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
  set_property(GLOBAL APPEND PROPERTY VARDA_OBJECT_LIBS varda_${name}_obj)
  foreach(dep IN LISTS ARGN)
    target_link_libraries(varda_${name} PUBLIC varda_${dep})
  endforeach()
  if(name STREQUAL "thread")
    target_link_libraries(varda_${name} PUBLIC pthread)
  endif()
endfunction()

# The file utilities copy files through the file object, and the file object
# uses the file names: the two static libraries depend on each other.
function(varda_filesys_link_file)
  target_link_libraries(varda_filesys PUBLIC varda_file)
endfunction()
