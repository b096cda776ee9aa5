// What cameras note in JPEG files about how the picture is to be held.
#pragma once

#include <string>

namespace ravlo::test {

/// A segment with one entry before that of the orientation, 6: a quarter turn to the right.
inline const std::string kTurnedNotes(
    "\xff\xe1\x00\x2a"
    "Exif\0\0II*\0\x08\0\0\0\x02\0"
    "\x0f\x01\x02\0\x01\0\0\0\x41\0\0\0"
    "\x12\x01\x03\0\x01\0\0\0\x06\0\0\0",
    44);
/// The same in the other byte order, with 8.
inline const std::string kTurnedNotesOfMotorola(
    "\xff\xe1\x00\x1e"
    "Exif\0\0MM\0*\0\0\0\x08\0\x01"
    "\x01\x12\0\x03\0\0\0\x01\0\x08\0\0",
    32);

}  // namespace ravlo::test
