// Switches between a source and its mutants: every fault is compiled in and takes effect only while its number is on.
#pragma once

namespace Mutants {

// True if the environment variable ORLIM_MUTANT holds this number. It does not change during the life of the process.
// On also records that the place was reached. IsOn is for constants that are initialised before main and used by all
// tests alike. Any thread.
bool On(int number);
bool IsOn(int number);

// Records that the places of the mutants first to last were reached. Any thread.
void Reach(int first, int last);

}  // namespace Mutants
