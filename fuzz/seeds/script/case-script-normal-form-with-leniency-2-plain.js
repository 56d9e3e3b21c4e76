@
    // flips the light
    function touched(value, time) {
      state = !state;    /* remember */
      light = state
      print(\