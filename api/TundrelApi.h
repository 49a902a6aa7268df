// TundrelApi: surface geometry, fields and file formats for optical surface
// measurements on wind-tunnel models. Include this header for every exported
// function of the library.
#pragma once

#include "api/arrayWorks.h"
#include "api/geo.h"
#include "api/ngeo.h"
#include "api/host.h"
#include "api/formats/formats.h"
#include "api/formats/safe_write.h"
#include "api/mesh/mesh.h"
#include "api/field_selection.h"
#include "api/fields/fields.h"
#include "api/fields/pressure_ports.h"
#include "api/fields/self_illumination.h"
#include "api/mesh/normals.h"
#include "api/render/render.h"
#include "api/zvec.h"
#include "api/markers.h"
#include "api/markersImport.h"
#include "api/IOdom.h"
#include "dialogs/dialogs.h"
