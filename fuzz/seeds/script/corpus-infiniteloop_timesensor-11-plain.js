@
      var sent;

      function initialize() {
         sent = false;
      }

      function fraction(val) {
          if (!sent) {
             text = new MFString('Pass');
             sent = true;
          }
      }
   