"""Builds the library from the checkout that contains this recipe."""

import re
from pathlib import Path

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeToolchain, cmake_layout
from conan.tools.files import copy


class Cachefile(ConanFile):
    name = "cachefile"
    description = "Cache file library of a recording application"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False], "fPIC": [True, False]}
    default_options = {"shared": True, "fPIC": True}
    implements = ["auto_shared_fpic"]

    @property
    def _checkout(self):
        return Path(self.recipe_folder).parents[1]

    def set_version(self):
        text = (self._checkout / "core/Version.h").read_text(encoding="utf-8")
        numbers = (re.search(rf"#define CACHEFILE_VERSION_{part} (\d+)", text)[1]
                   for part in ("MAJOR", "MINOR", "PATCH"))
        self.version = ".".join(numbers)

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "*.cmake", "*.in", "*.map", "*.h", "*.cpp"):
            copy(self, pattern, self._checkout, self.export_sources_folder,
                 excludes=("build/*", "tests/*", "tools/*", "bench/*", "fuzz/*"))

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        for part in ("TOOL", "TESTS", "EXAMPLES"):
            toolchain.cache_variables[f"CACHEFILE_{part}"] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        self.cpp_info.libs = ["cachefile"]
        self.cpp_info.includedirs = ["include", "include/cachefile"]
        self.cpp_info.set_property("cmake_file_name", "cachefile")
        self.cpp_info.set_property("cmake_target_name", "cachefile::cachefile")
        if not self.options.shared:
            self.cpp_info.defines = ["CACHEFILE_STATIC"]
        if self.settings.os == "Linux":
            self.cpp_info.system_libs = ["pthread"]
