/* The C entry points of the platform's security event-log library, libhalvo_log.so.0.
 * Both take a variable argument list; the agent always passes exactly the named arguments. */
#ifndef HALVOLOG_H
#define HALVOLOG_H

#ifdef __cplusplus
extern "C" {
#endif

int halvo_log(int type, const char *module, const char *operation, const char *result, ...);
int halvo_log_v2(int level, int type, const char *module, const char *operation, const char *result, ...);

#ifdef __cplusplus
}
#endif

#endif /* HALVOLOG_H */
