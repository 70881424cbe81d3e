"""Builds the hosts of tests/install/consumer against the package and runs them."""

from conan import ConanFile
from conan.tools.build import can_run
from conan.tools.cmake import CMake, cmake_layout


class CachefileTest(ConanFile):
    settings = "os", "arch", "compiler", "build_type"
    generators = "CMakeDeps", "CMakeToolchain"

    def requirements(self):
        self.requires(self.tested_reference_str)

    def layout(self):
        cmake_layout(self)

    def build(self):
        cmake = CMake(self)
        cmake.configure(build_script_folder="../../../tests/install/consumer")
        cmake.build()

    def test(self):
        if can_run(self):
            CMake(self).ctest()
