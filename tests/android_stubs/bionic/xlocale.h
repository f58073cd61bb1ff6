#include <locale.h>
