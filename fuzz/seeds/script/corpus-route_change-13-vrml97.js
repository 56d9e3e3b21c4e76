B
    var on = false;
    function touched() {
	  if(on) {
	    Browser.deleteRoute(sensor, 'fraction_changed', interp, 'set_fraction');
	    Browser.deleteRoute(interp, 'value_changed', trans, 'set_translation');
		on = false;
	  } else {
	    Browser.addRoute(sensor, 'fraction_changed', interp, 'set_fraction');
	    Browser.addRoute(interp, 'value_changed', trans, 'set_translation');
		on = true;
	  }
	}
  