// Memory that is given away on purpose, known to the leak checker also when it is not told from
// outside.
extern "C" const char *__lsan_default_suppressions();

extern "C" const char *__lsan_default_suppressions() {
  return
      // A context cell is replaced, or its instance closed, while the client may still hold it.
      "leak:lum_plat_set_sdev_ctx\n"
      // A request belongs to its completion, which never comes when the interface manager drops the
      // batch or a controller of it fails.
      "leak:lum::create_controllers\n"
      "leak:lum_replay_ots_controllers\n"
      "leak:lum_ots_controllers_update\n"
      "leak:lum_ots_controllers_delete\n";
}
