#pragma once

#include "host/device/DeviceDescription.h"
