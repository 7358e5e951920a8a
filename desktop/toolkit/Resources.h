#pragma once

// Where the window's files are within the program.
#define KRL_RESOURCE(name) "/com/korvane/Vesk/" name
