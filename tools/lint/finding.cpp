// What the lint has to find: one that finds nothing here looks at nothing elsewhere.
#include <string>

const std::string *found = 0;
