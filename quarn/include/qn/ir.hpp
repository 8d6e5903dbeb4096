// Everything needed to make and walk IR.
#pragma once

#include <qn/builder.hpp>
#include <qn/scope.hpp>
