# quill_module_headers(TARGET MODULE): TARGET's headers are reached as "MODULE/...", through an
# include folder of its own that holds a link to MODULE's folder and nothing else. A library
# sees another module's headers only by linking it, so an include that points up the layering,
# or at a module not linked, fails to compile instead of slipping through.
function(quill_module_headers target module)
  set(root ${CMAKE_BINARY_DIR}/module-headers/${target})
  get_filename_component(parent ${root}/${module} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  if(NOT EXISTS ${root}/${module})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${module} ${root}/${module} SYMBOLIC)
  endif()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    target_include_directories(${target} INTERFACE ${root})
  else()
    target_include_directories(${target} PUBLIC ${root})
  endif()
endfunction()
