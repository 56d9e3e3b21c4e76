B
        function activated(value) {
          if(value) {
            switch(counter) {
              case 0:
                kids[0].diffuseColor.g = 1;
                counter++;
                break;
              case 1:
                kids[1].material.diffuseColor.b = 1;
                counter++;
                break;
              case 2:
                kids[1].material.diffuseColor = new SFColor(1, 0, 0);
                counter++;
                break;
              case 3:
                kids[0].diffuseColor = new SFColor(1, 0, 0);
                counter = 0;
                break;
            }
          }
        }
      