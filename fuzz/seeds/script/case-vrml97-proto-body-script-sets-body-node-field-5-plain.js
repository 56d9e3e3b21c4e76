@
    function initialize() {
      transform.set_translation = start.add(end).multiply(0.5);
    }