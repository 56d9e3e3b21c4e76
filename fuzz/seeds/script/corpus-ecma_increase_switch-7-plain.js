@

 // field SFInt32 currentValue //
 // field SFInt32 maxValue //
 // eventOut SFInt32 choice_out //

 function bool_in(value)
    {
    // value  SFBool
    if (value)
       if (currentValue < maxValue)
          {
          currentValue++;
          choice_out = currentValue;
          }
    }


