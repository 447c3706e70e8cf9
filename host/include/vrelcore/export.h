#pragma once

// Marks what a host library exports; everything else is built with hidden visibility.
#define VREL_API __attribute__((visibility("default")))
