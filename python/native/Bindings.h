#pragma once

#include <pybind11/pybind11.h>

// What each subject adds to the module.

void bindRegions(pybind11::module_ &module);
void bindConfigurations(pybind11::module_ &module);
