"""Conan 2 recipe that builds the tree it lies in: conan create packaging/conan"""
import pathlib
import re

from conan import ConanFile
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy
from conan.tools.gnu import PkgConfigDeps

required_conan_version = ">=2.0"


class TksinterfaceConan(ConanFile):
    name = "tksinterface"
    description = "Starts meetings through the launcher application Tarvo Kovra Start"
    homepage = "https://developer.tarvo.example/tksinterface"
    topics = ("meeting", "launcher", "ipc")
    license = "LicenseRef-owner"
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False], "tools": [True, False]}
    # Three are opened on first use, by the names of their files: shared, and on the loader's way when a host runs (conanrun).
    default_options = {"shared": True, "tools": False, "icu/*:shared": True, "libarchive/*:shared": True, "libcurl/*:shared": True}

    @property
    def _tree(self):
        return pathlib.Path(self.recipe_folder).parent.parent

    def set_version(self):
        header = (self._tree / "include/tksinterface/TKSVersion.h").read_text(encoding="utf-8")
        self.version = ".".join(re.search(rf"#define TKS_VERSION_{part} (\d+)", header)[1] for part in ("MAJOR", "MINOR", "PATCH"))

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "LICENSE", "c/*", "cmake/*", "codesign/*", "examples/*", "formats/*", "foundation/*", "include/*",
                        "install/*", "interface/*", "messaging/*", "objc/*", "platform/*", "tools/*"):
            copy(self, pattern, str(self._tree), self.export_sources_folder)

    def validate(self):
        check_min_cppstd(self, 20)

    def layout(self):
        cmake_layout(self)

    def requirements(self):
        if self.settings.os == "Macos":
            return
        self.requires("icu/[>=72]")
        self.requires("libarchive/[>=3.6]")
        self.requires("libcurl/[>=7.88]")
        self.requires("openssl/[>=3 <4]")
        self.requires("pugixml/[>=1.13]")
        self.requires("simdjson/[>=3]")
        if self.options.tools:
            self.requires("cli11/[>=2.1]")

    def build_requirements(self):
        self.tool_requires("cmake/[>=3.25]")
        self.tool_requires("pkgconf/[>=2]")

    def generate(self):
        CMakeDeps(self).generate()
        PkgConfigDeps(self).generate()
        toolchain = CMakeToolchain(self)
        toolchain.variables["TKS_BUILD_TESTS"] = False
        toolchain.variables["TKS_BUILD_EXAMPLES"] = False
        toolchain.variables["TKS_BUILD_TOOLS"] = bool(self.options.tools)
        toolchain.variables["TKS_INSTALL"] = True
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        copy(self, "LICENSE", self.source_folder, str(pathlib.Path(self.package_folder) / "licenses"))

    def package_info(self):
        # The package has CMake files of its own.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.builddirs = ["lib/cmake/tksinterface"]
        self.cpp_info.libs = ["tksinterface"]
