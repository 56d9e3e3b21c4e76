file(REMOVE_RECURSE
  "libworldpare_core.a"
)
