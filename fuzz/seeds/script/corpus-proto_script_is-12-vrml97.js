B
	  function initialize() {
		Browser.println('Initialise called');
		color = new SFColor(0, 0, 1);
	  }

	  function touchInput() {
		Browser.println('Got touchInput');
	  }

      function eventsProcessed() {
		Browser.println('eventsProcessed called');
		color = new SFColor(0, 1, 0);
	  }

	  function shutdown() {
		Browser.println('Shutdown called');
	  }
	