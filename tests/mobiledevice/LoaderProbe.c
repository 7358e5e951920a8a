/* Loads a library and says which of the functions it has been given. In C, so that the provider
 * header is tried with it. */

#include <MobileDevice/Provider.h>

#include <dlfcn.h>
#include <stdio.h>

#ifdef PREASSIGNED
static int32_t ownConnect(am_device* device) {
    (void)device;
    return 815;
}

/* The library finds this one before its own. */
int32_t (*AMDeviceConnect)(am_device* device) = ownConnect;
#endif

static int assigned = 0;
static int all = 0;

static void count(void* library, const char* name) {
    void** variable = (void**)dlsym(library, name);
    ++all;
    assigned += variable != NULL && *variable != NULL ? 1 : 0;
}

int main(int argc, char** argv) {
    void* library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    if (library == NULL) {
        printf("not loaded: %s\n", dlerror());
        return 1;
    }
#define COUNT(function) count(library, #function);
    MOBILEDEVICE_FUNCTIONS(COUNT)
    printf("assigned %d of %d", assigned, all);
#ifdef PREASSIGNED
    printf(", connect says %d", AMDeviceConnect(NULL));
#else
    {
        int32_t (**connectDevice)(am_device*) =
            (int32_t(**)(am_device*))dlsym(library, "AMDeviceConnect");
        if (connectDevice != NULL && *connectDevice != NULL) {
            printf(", connect says %d", (*connectDevice)(NULL));
        }
    }
#endif
    printf("\n");
    return 0;
}
