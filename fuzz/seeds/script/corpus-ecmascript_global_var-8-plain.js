@
      var pfi=0; // internal global persistent variable

      function initialize (timeStamp)
      {
        Browser.println('pfi: ' + pfi);
        pfi = -1;
        Browser.println('pfi: ' + pfi);
        if (pfi == -1)
           text = new MFString('PASS');
        else
           text = new MFString('FAIL');
      }
      