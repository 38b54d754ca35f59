#pragma once
// Umbrella header of the tavrin library.
#include <tavrin/Calibration.h>
#include <tavrin/ColorOutput.h>
#include <tavrin/Conversions.h>
#include <tavrin/Export.h>
#include <tavrin/Files.h>
#include <tavrin/PhoXiDevice.h>
#include <tavrin/Spaces.h>
#include <tavrin/pho_ply_io/PointCloud.h>
