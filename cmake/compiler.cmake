# Warnings, sanitizers and hardening that every target of the project is built with.
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wthread-safety)
elseif(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # g++ 12 sees overlapping copies in the standard library's own string concatenation.
  add_compile_options(-Wno-restrict)
endif()

if(CAMERA_CTRL_SANITIZE)
  add_compile_options(-fsanitize=${CAMERA_CTRL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${CAMERA_CTRL_SANITIZE})
else()
  add_compile_options(-fstack-protector-strong)
  # Clang leaves the sanitizers' symbols of a shared library to the program, so this is for plain builds only.
  add_link_options(-Wl,--no-undefined)
  add_compile_definitions($<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
endif()
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack -Wl,--as-needed)
