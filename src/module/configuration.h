// The configuration document of the module.
#pragma once

// Parses the document, a JSON object as text, and stores its settings: the enabling flags and, if the reverse-shell
// function is enabled and the environment permits it, the interval of the period scan and the whitelist. An invalid
// interval is ignored; an invalid or missing whitelist empties the current one. Returns false and changes nothing if
// config is null or not valid JSON. Called by the thread that starts the module.
bool ReadConfiguration(const char* config);
