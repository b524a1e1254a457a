// The language of the texts a thread loads.
#pragma once

// Makes the calling thread load its texts, and format by its locale, in the user's UI language (see
// docs/LANGUAGES.md for how that is found and matched to the string table). Call it at the start of every
// thread that loads texts for the user, before the first text. Nothing is reported: when a step fails,
// the thread keeps the language it had, English for a thread that never set one.
void initThreadLanguage();
