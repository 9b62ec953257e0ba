"""Drivers built from the installed packages alone, as their authors would."""

import shutil

DRIVER = "/usr/share/doc/liblum-dev/examples/minimal_driver.c"
OWN_PLATFORM = "/usr/share/doc/liblum-dev/examples/own_platform"
SIMULATED = "/usr/share/doc/lumd/examples/simulated"
STRICT = "-Wall -Wextra -Wpedantic -Werror"

PROJECT = """cmake_minimum_required(VERSION 3.25)
project(drivers C CXX)
find_package(lum REQUIRED)
add_executable(driver_c driver.c)
set_target_properties(driver_c PROPERTIES C_STANDARD 11 C_STANDARD_REQUIRED ON)
add_executable(driver_cpp driver.cpp)
set_target_properties(driver_cpp PROPERTIES CXX_STANDARD 20 CXX_STANDARD_REQUIRED ON)
foreach(driver driver_c driver_cpp)
  target_link_libraries(${driver} PRIVATE lum::lum lum::linux)
endforeach()
"""


def shell(root, script):
    return root.run("sh", "-ec", script)


def run(steps, root):
    steps.say("Drivers are built from the packages")
    root.apt("install", "gcc", "g++", "cmake", "make", "pkg-config")
    work = root / "srv/drivers"
    work.mkdir()
    (work / "CMakeLists.txt").write_text(PROJECT)
    shutil.copy(str(root.path) + DRIVER, work / "driver.c")
    # The same driver in C++, where an empty initialiser stands for zeros.
    (work / "driver.cpp").write_text((work / "driver.c").read_text().replace("= {0}", "= {}"))
    shutil.copytree(str(root.path) + SIMULATED, work / "node")
    flags = "$(pkg-config --cflags --libs lum_linux)"
    built_by = {
        "gcc in C11 and pkg-config": f"gcc -std=c11 -D_DEFAULT_SOURCE {STRICT} driver.c {flags} -o by_pc_c; ./by_pc_c",
        "g++ in C++20 and pkg-config": f"g++ -std=c++20 {STRICT} driver.cpp {flags} -o by_pc_cpp; ./by_pc_cpp",
        "CMake in C11": f"cmake -S . -B made -DCMAKE_C_FLAGS='{STRICT}' -DCMAKE_CXX_FLAGS='{STRICT}' >log"
                        " || { cat log; exit 1; }; cmake --build made >log || { cat log; exit 1; }; made/driver_c",
        "CMake in C++20": "made/driver_cpp",
    }
    for by, script in built_by.items():
        # The last word of the script is the driver, which gets its description.
        shown = shell(root, f"cd /srv/drivers; {script} node/node.toml")
        steps.check(f"a driver built by {by} reads the simulated modules", "II-VI" in shown and "41.25 C" in shown, shown)
    built = shell(root, f"cp -R {OWN_PLATFORM} /srv/own; cd /srv/own; cmake -S . -B made -DCMAKE_CXX_FLAGS='{STRICT}'"
                        " >log && cmake --build made >>log || { cat log; exit 1; }; made/own_platform")
    steps.check("a platform of one's own is built and polls its module", "OWN PLATFORM: 41.00 C" in built, built)
    held = shell(root, "cd /srv/own; LUM_STORE=/srv/own/checked made/conformance 2>log || tail log")
    steps.check("it holds in the conformance test", "not ok" not in held and "# SKIP" in held, held)
    shutil.rmtree(work)
    shutil.rmtree(root / "srv/own")
