#pragma once

// One name for the filesystem library that all code uses: ghc::filesystem where its header is
// installed, std::filesystem otherwise.
#if __has_include(<ghc/filesystem.hpp>)
#include <ghc/filesystem.hpp>
namespace zo_base::filesystem {
using namespace ghc::filesystem;
}
#else
#include <filesystem>
namespace zo_base::filesystem {
using namespace std::filesystem;
}
#endif
