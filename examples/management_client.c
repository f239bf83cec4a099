/* SPDX-License-Identifier: Apache-2.0
   A management client in C: checks, installs, lists, finds and deletes services under the root
   it is given. */
#include <larkspur/larkspur_c.h>

#include <stdio.h>
#include <string.h>

static const char kUsage[] =
    "usage: management_client_c ROOT COMMAND\n"
    "\n"
    "  check ARCHIVE                                     check whether an install would accept it\n"
    "  install SERVICE_TYPE ARCHIVE VERSION IDENTIFIER   install or update a service\n"
    "  list                                              show every service and its version\n"
    "  find VERSION                                      show the service that VERSION installed\n"
    "  delete VERSION                                    delete the service that VERSION "
    "installed\n"
    "\n"
    "exit status: 0 done, 1 refused or failed, 2 wrong usage\n";

enum { DONE = 0, FAILED = 1, WRONG_USAGE = 2 };

/* Prints the message, the code, and the error lines that the library logged. */
static int failed(const larkspur_error* error) {
  fprintf(stderr, "management_client_c: %s (code %d)\n", error->message, error->code);
  if (error->detail[0] != '\0') fprintf(stderr, "%s\n", error->detail);
  return FAILED;
}

static int install(larkspur_store* store, char** arguments, larkspur_error* error) {
  larkspur_install_options options = {0};
  options.size = sizeof options;
  options.service_type = arguments[0];
  options.archive = arguments[1];
  options.version = arguments[2];
  options.identifier = arguments[3];
  options.sha256 = ""; /* A real client records the digest of the archive that it verified. */
  /* Installing a bad archive would remove the tree of the service. */
  const int code = larkspur_check_archive(store, options.archive, error);
  return code != LARKSPUR_OK ? code : larkspur_install(store, &options, error);
}

static int list(larkspur_store* store, larkspur_error* error) {
  larkspur_service** services = NULL;
  const int code = larkspur_services(store, &services, error);
  if (code != LARKSPUR_OK) return code;
  for (larkspur_service** service = services; *service != NULL; ++service) {
    const char* version = (*service)->version;
    printf("%s  %s\n", version != NULL ? version : "-", (*service)->type);
  }
  larkspur_free_services(services);
  return code;
}

static int find(larkspur_store* store, const char* version, larkspur_error* error) {
  char* type = NULL;
  const int code = larkspur_find(store, version, &type, error);
  if (code == LARKSPUR_OK) puts(type);
  larkspur_free(type);
  return code;
}

static int run(larkspur_store* store, int count, char** words) {
  larkspur_error error = {0};
  int code = LARKSPUR_OK;
  if (count == 2 && strcmp(words[0], "check") == 0) {
    code = larkspur_check_archive(store, words[1], &error);
  } else if (count == 5 && strcmp(words[0], "install") == 0) {
    code = install(store, words + 1, &error);
  } else if (count == 1 && strcmp(words[0], "list") == 0) {
    code = list(store, &error);
  } else if (count == 2 && strcmp(words[0], "find") == 0) {
    code = find(store, words[1], &error);
  } else if (count == 2 && strcmp(words[0], "delete") == 0) {
    code = larkspur_delete(store, words[1], &error);
  } else {
    fputs(kUsage, stderr);
    return WRONG_USAGE;
  }
  return code == LARKSPUR_OK ? DONE : failed(&error);
}

int main(int argc, char** argv) {
  larkspur_store* store = NULL;
  larkspur_error error = {0};
  int status = DONE;
  if (argc < 3) {
    fputs(kUsage, stderr);
    return WRONG_USAGE;
  }
  if (larkspur_open(argv[1], &store, &error) != LARKSPUR_OK) return failed(&error);
  status = run(store, argc - 2, argv + 2);
  larkspur_close(store);
  return status;
}
