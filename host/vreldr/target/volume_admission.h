#pragma once

#include "target/host.h"

namespace VrelDR {

// Finds out whether the host, which is open, may use a volume of its own. One whose identity is
// recorded is admitted at once: its engine compares that before every use. Otherwise
//
// - one that has this host's identity for it was being initialised, and is recorded;
// - one that an earlier version used is given an identity when the bytes of every target that is
//   recorded on it are found there;
// - an empty one on which no target is recorded is admitted without an identity: InitialiseVolume
//   gives it one before it is first written to;
// - any other is out of reach (kErrVolumeMissing), with the reason and what to do.
Status AdmitVolume(Host& host, Volume& volume);

// Gives a volume that was admitted an identity, unless it has one.
Status InitialiseVolume(Host& host, Volume& volume);

// Why a volume without a recorded identity is not used as it is.
struct Admission {
  enum class Kind {
    kOurs,       // has this host's identity for it
    kFormer,     // has no identity, and all that is recorded on it is there
    kEmpty,      // has nothing
    kUnknown,    // has something, but neither an identity nor anything recorded on it
    kElsewhere,  // is not what the records say, or another's
  };
  Kind kind = Kind::kElsewhere;
  std::string why;  // of kUnknown and kElsewhere: what is wrong
};
Status JudgeVolume(Host& host, Volume& volume, const VolumeSight& sight, Admission& admission);

// Gives the volume this identity, whatever it has when `anew`, and records it.
Status MarkVolume(Host& host, Volume& volume, const VolumeIdentity& identity, bool anew);
VolumeIdentity NewIdentity(const Host& host, const Volume& volume, const VolumeSight& sight);

}  // namespace VrelDR
