// Everything Velto offers, in one include. Prefer the single headers in library code.
#pragma once

#include "velto/VeltoAny.hpp"
#include "velto/VeltoError.hpp"
#include "velto/VeltoInitializerError.hpp"
#include "velto/VeltoLogging.hpp"
#include "velto/VeltoMirror.hpp"
#include "velto/VeltoPlatformError.hpp"
#include "velto/VeltoResult.hpp"
#include "velto/via/VeltoCodeSite.hpp"
#include "velto/via/VeltoImpetus.hpp"
#include "velto/via/VeltoJunction.hpp"
#include "velto/via/VeltoStackFrame.hpp"
#include "velto/via/VeltoVia.hpp"
