# Of a project that includes this one; by itself the prefix is "/".
mkdir "$scratch/parent"
cat >"$scratch/parent/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(parent LANGUAGES C CXX)
set(BUILD_TESTING OFF)
add_subdirectory($source responder)
END
quietly cmake -S "$scratch/parent" -B "$scratch/own" -G Ninja
grep -qx 'CMAKE_INSTALL_PREFIX:PATH=/usr/local' "$scratch/own/CMakeCache.txt" ||
    fail "$(grep ^CMAKE_INSTALL_PREFIX "$scratch/own/CMakeCache.txt")"
quietly cmake -S "$scratch/parent" -B "$scratch/given" -G Ninja -DCMAKE_INSTALL_PREFIX=/srv/parent
grep -qx 'CMAKE_INSTALL_PREFIX:PATH=/srv/parent' "$scratch/given/CMakeCache.txt" || fail "not the one that was given"
quietly cmake -S "$source" -B "$scratch/alone" -G Ninja -DBUILD_TESTING=OFF
grep -qx 'CMAKE_INSTALL_PREFIX:PATH=/' "$scratch/alone/CMakeCache.txt" || fail "alone it is another one"
