#pragma once

// Marks what libvreldrgroup exports; everything else in it is hidden.
#define VRELDRGROUP_API __attribute__((visibility("default")))
