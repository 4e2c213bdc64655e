#!/usr/bin/env bash
# A project that adds the sources to its own is refused where they can't work, and its warnings don't
# reach them. Usage: embedding_test.sh SOURCE_DIR COMPILER
set -euo pipefail
source=$1 compiler=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
copy="$work/tarvel sources"
mkdir "$copy"
cp -r "$source"/{CMakeLists.txt,LICENSE,cmake,docs,include,base,network,tarvel,business} "$copy"
cat >"$work/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(app LANGUAGES CXX)
add_compile_options(-Wshadow -Wconversion -Werror)
add_subdirectory("tarvel sources")
END

configure() {  # ARGUMENT...
  cmake -S "$work" -B "$work/build" -G Ninja --fresh -DCMAKE_CXX_COMPILER="$compiler" "$@" 2>&1
}
refuse() {  # TEXT ARGUMENT...
  local output
  if output=$(configure "${@:2}"); then echo "configures: ${*:2}"; return 1; fi
  tr -s ' \n' ' ' <<<"$output" | grep -oF -- "$1" || { echo "not \"$1\": $output"; return 1; }
}
configure
cmake --build "$work/build" --target tarvel_base_object
refuse "tarvel is a shared library only" -DBUILD_SHARED_LIBS=OFF
refuse "tarvel needs RTTI" -DCMAKE_CXX_FLAGS=-fno-rtti
sed -i 's/\(TARVEL_VERSION_PATCH\) [0-9]*/\1 98/' "$copy/include/tarvel/version.h"
refuse ".98, but project() in CMakeLists.txt has "
