"""A Conan 2 recipe that builds the libraries from this very source tree: conan create packaging/conan"""

import os

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load


class LibkaiConan(ConanFile):
    name = "libkai"
    description = "An AI assistant for database tools, as a C++ library"
    package_type = "shared-library"
    settings = "os", "compiler", "build_type", "arch"
    exports = "../../VERSION"
    # No licence has been named yet.

    def _root(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        version = os.path.join(self._root(), "VERSION")
        if not os.path.exists(version):
            version = os.path.join(self.recipe_folder, "VERSION")
        self.version = load(self, version).strip()

    def export_sources(self):
        for folder in ("cmake", "include", "libcf", "packaging", "src"):
            copy(self, os.path.join(folder, "*"), self._root(), self.export_sources_folder)
        for file in ("CMakeLists.txt", "VERSION", "THIRD_PARTY.md"):
            copy(self, file, self._root(), self.export_sources_folder)

    def requirements(self):
        self.requires("libcurl/[>=7.87 <9]")
        self.requires("openssl/[>=3 <4]")
        self.requires("simdjson/[>=3 <5]")
        self.requires("zlib/[>=1.2.11 <2]")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        CMakeDeps(self).generate()
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["BUILD_TESTING"] = False
        toolchain.cache_variables["KAI_BUILD_TOOLS"] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        copy(self, "THIRD_PARTY.md", self.source_folder, os.path.join(self.package_folder, "licenses"))

    def package_info(self):
        cf = self.cpp_info.components["cf"]
        cf.libs = ["cf"]
        cf.set_property("cmake_target_name", "kai::cf")
        cf.set_property("pkg_config_name", "libcf")
        cf.requires = ["libcurl::libcurl", "openssl::openssl", "simdjson::simdjson", "zlib::zlib"]
        kai = self.cpp_info.components["kai"]
        kai.libs = ["kai"]
        kai.set_property("cmake_target_name", "kai::kai")
        kai.set_property("pkg_config_name", "libkai")
        kai.requires = ["cf"]
        self.cpp_info.set_property("cmake_file_name", "kai")
