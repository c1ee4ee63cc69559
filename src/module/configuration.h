// The configuration document of the module.
#pragma once

// Parses the document, a JSON object as text, and stores what it says: the enabling flags, and, when the reverse-shell
// function is asked for and the environment does not forbid it, the scan's period and the whitelist. A period that
// is not acceptable leaves the one in force, a whitelist that is not acceptable or missing empties the one in force.
// False, with nothing changed, if config is null or no valid JSON. Called by the thread that starts the module.
bool ReadConfiguration(const char* config);
