"""Runs the Conan recipe's methods with stand-ins for Conan's classes: check_conanfile.py RECIPE WORK"""

import importlib.util
import os
import re
import shutil
import subprocess
import sys
import types


def copy(recipe, pattern, source, target):
    """Files of the source folder that match, with their paths, as Conan's tool copies them."""
    expression = re.compile(re.escape(pattern).replace(r"\*", ".*") + "$")
    found = False
    for folder, _, files in os.walk(source):
        for file in files:
            path = os.path.relpath(os.path.join(folder, file), source)
            if expression.match(path) and not path.startswith(("build", ".git")):
                found = True
                os.makedirs(os.path.dirname(os.path.join(target, path)), exist_ok=True)
                shutil.copy2(os.path.join(source, path), os.path.join(target, path))
    assert found, "nothing matches " + pattern


class Generator:
    made = []

    def __init__(self, recipe):
        self.cache_variables = {}
        Generator.made.append(self)

    def generate(self):
        pass


class CMake:
    def __init__(self, recipe):
        self.recipe = recipe

    def configure(self):
        options = {}
        for generator in Generator.made:
            options.update(generator.cache_variables)
        arguments = ["-D%s=%s" % (key, "ON" if value else "OFF") for key, value in options.items()]
        subprocess.run(["cmake", "-S", self.recipe.source_folder, "-B", self.recipe.build_folder, "-G", "Ninja"]
                       + arguments, check=True)

    def build(self):
        pass  # what it builds is what every other build does

    def install(self):
        pass


class Component:
    def __init__(self):
        self.properties = {}

    def set_property(self, key, value):
        self.properties[key] = value


class Information(Component):
    def __init__(self):
        super().__init__()
        self.components = {"cf": Component(), "kai": Component()}


class ConanFile:
    def __init__(self):
        self.required = []
        self.cpp_info = Information()

    def requires(self, reference):
        self.required.append(reference)


def stand_in(name, **members):
    module = types.ModuleType(name)
    module.__dict__.update(members)
    sys.modules[name] = module


stand_in("conan", ConanFile=ConanFile)
stand_in("conan.tools")
stand_in("conan.tools.cmake", CMake=CMake, CMakeDeps=Generator, CMakeToolchain=Generator,
         cmake_layout=lambda recipe: None)
stand_in("conan.tools.files", copy=copy, load=lambda recipe, path: open(path, encoding="utf-8").read())

recipe_path, work = sys.argv[1:]
shutil.rmtree(work, ignore_errors=True)
specification = importlib.util.spec_from_file_location("conanfile", recipe_path)
module = importlib.util.module_from_spec(specification)
specification.loader.exec_module(module)

recipe = module.LibkaiConan()
recipe.recipe_folder = os.path.dirname(os.path.abspath(recipe_path))
recipe.export_sources_folder = recipe.source_folder = os.path.join(work, "source")
recipe.build_folder = os.path.join(work, "build")
recipe.package_folder = os.path.join(work, "package")
recipe.set_version()
recipe.export_sources()
recipe.requirements()
recipe.layout()
recipe.generate()
recipe.build()
recipe.package()
recipe.package_info()

assert re.fullmatch(r"\d+\.\d+\.\d+", recipe.version), recipe.version
required = {reference.split("/")[0] for reference in recipe.required}
used = {name.split("::")[0] for name in recipe.cpp_info.components["cf"].requires}
assert required == used, "required are %s, used are %s" % (required, used)
